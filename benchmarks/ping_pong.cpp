#include "ping_pong.h"

#include <sys/socket.h>

#include <array>
#include <stdexcept>

namespace zam_bench {
namespace {

constexpr std::size_t kMostBytes = 4096;

}  // namespace

SocketPair MakeSocketPair() {
    std::array<int, 2> sockets{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        throw std::runtime_error("no socket pair");
    }
    return {zam_platform::UniqueFd(sockets[0]), zam_platform::UniqueFd(sockets[1])};
}

bool SendAll(int socket, const unsigned char* from, std::size_t bytes) {
    for (std::size_t sent = 0; sent < bytes;) {
        const ssize_t now = ::send(socket, from + sent, bytes - sent, MSG_NOSIGNAL);
        if (now <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(now);
    }
    return true;
}

bool ReceiveAll(int socket, unsigned char* to, std::size_t bytes) {
    for (std::size_t got = 0; got < bytes;) {
        const ssize_t now = ::recv(socket, to + got, bytes - got, 0);
        if (now <= 0) {
            return false;
        }
        got += static_cast<std::size_t>(now);
    }
    return true;
}

void Ping(int socket, const Exchange& exchange) {
    std::array<unsigned char, kMostBytes> bytes{};
    if (::send(socket, bytes.data(), exchange.requestBytes, MSG_NOSIGNAL) !=
            static_cast<ssize_t>(exchange.requestBytes) ||
        !ReceiveAll(socket, bytes.data(), exchange.responseBytes)) {
        throw std::runtime_error("the bare server is gone");
    }
}

void ServePings(int socket, const Exchange& exchange) {
    std::array<unsigned char, kMostBytes> bytes{};
    while (ReceiveAll(socket, bytes.data(), exchange.requestBytes) &&
           ::send(socket, bytes.data(), exchange.responseBytes, MSG_NOSIGNAL) > 0) {
    }
}

}  // namespace zam_bench
