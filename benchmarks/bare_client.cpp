#include "bare_client.h"

#include <sys/socket.h>

#include <cstring>
#include <stdexcept>

namespace zam_bench {

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        throw std::runtime_error("the path of a socket is too long: " + path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

zam_platform::UniqueFd ConnectTo(const std::string& path) {
    zam_platform::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = AddressOf(path);
    if (!socket || ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address),
                             sizeof(address)) != 0) {
        throw std::runtime_error("nobody takes connections at " + path);
    }
    return socket;
}

void ConnectTwiceAndLookUp(const std::string& path, int calls) {
    constexpr int kConnectorEndpoints = 8;
    const zam_platform::UniqueFd connector = ConnectTo(path);
    const zam_platform::UniqueFd files = ConnectTo(path);
    for (int each = 0; each < kConnectorEndpoints + calls; ++each) {
        Ping(connector.Get(), kLookupExchange);
    }
    Ping(files.Get(), kLookupExchange);
}

}  // namespace zam_bench
