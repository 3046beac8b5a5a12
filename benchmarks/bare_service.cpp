#include "bare_service.h"

#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>
#include <utility>

#include "bare_client.h"

namespace zam_bench {
namespace {

constexpr int kBacklog = 64;

zam_platform::UniqueFd Listen(const std::string& path) {
    zam_platform::UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = AddressOf(path);
    if (!listener ||
        ::bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener.Get(), kBacklog) != 0) {
        throw std::runtime_error("cannot listen at " + path);
    }
    return listener;
}

void Serve(int listener) {
    for (;;) {
        const zam_platform::UniqueFd client(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        if (!client) {
            return;
        }
        ServePings(client.Get(), kLookupExchange);
    }
}

/// No thread is started for a connection: that would be part of the floor.
void ServeTwo(int listener) {
    std::thread other([listener] { Serve(listener); });
    Serve(listener);
    other.join();
}

}  // namespace

BareService::BareService(std::string path)
    : path_(std::move(path)),
      listener_(Listen(path_)),
      child_([this] { ServeTwo(listener_.Get()); }) {
    listener_.Reset();
}

BareService::~BareService() {
    ::unlink(path_.c_str());
}

}  // namespace zam_bench
