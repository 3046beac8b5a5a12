#include "support/raw_socket.h"
#include "support/require.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace zam_platform::testing {

using zam_test::Require;

namespace {

bool IsReady(int descriptor, short events, std::chrono::milliseconds wait) {
    pollfd poll{.fd = descriptor, .events = events, .revents = 0};
    int ready = 0;
    do {
        ready = ::poll(&poll, 1, static_cast<int>(wait.count()));
    } while (ready < 0 && errno == EINTR);
    Require(ready >= 0, "poll");
    return ready > 0;
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

}  // namespace

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes BytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

Bytes FromHex(std::string_view digits) {
    Bytes bytes;
    unsigned value = 0;
    bool half = false;
    for (const char digit : digits) {
        if (digit == ' ') {
            continue;
        }
        value = value * 16 + static_cast<unsigned>(digit <= '9' ? digit - '0' : digit - 'A' + 10);
        if (half) {
            bytes.push_back(static_cast<unsigned char>(value));
            value = 0;
        }
        half = !half;
    }
    return bytes;
}

std::string ToHex(const Bytes& bytes) {
    return fmt::format("{:02X}", fmt::join(bytes, " "));
}

Bytes Head(const Bytes& bytes, std::size_t count) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

Bytes Tail(const Bytes& bytes, std::size_t from) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end()};
}

Bytes Pattern(std::size_t size, std::uint32_t seed) {
    Bytes bytes(size);
    std::uint32_t state = seed * 2654435761U + 1;
    for (unsigned char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(state >> 24U);
    }
    return bytes;
}

Bytes FrameOf(Prelude prelude, const Bytes& fixed, const Bytes& arena) {
    prelude.fixedBytes = static_cast<std::uint32_t>(fixed.size());
    prelude.arenaBytes = static_cast<std::uint32_t>(arena.size());
    Bytes head(kPreludeBytes);
    EncodePrelude(prelude, head.data());
    return head + fixed + arena;
}

Bytes HelloFrame(unsigned char tokenByte) {
    return FrameOf({.kind = FrameKind::Hello}, Bytes(kTokenBytes, tokenByte));
}

Bytes LookupFrame(std::string_view endpoint, std::uint64_t callNumber) {
    return FrameOf({.kind = FrameKind::Lookup, .callNumber = callNumber}, BytesOf(endpoint));
}

void RawSocket::EndSending() const {
    Require(::shutdown(socket_.Get(), SHUT_WR) == 0, "shutdown");
}

void RawSocket::ShrinkBuffers() const {
    const int tiny = 1;
    Require(::setsockopt(socket_.Get(), SOL_SOCKET, SO_SNDBUF, &tiny, sizeof(tiny)) == 0, "SNDBUF");
    Require(::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVBUF, &tiny, sizeof(tiny)) == 0, "RCVBUF");
}

void RawSocket::Send(const Bytes& bytes) const {
    Require(TrySend(bytes), "send");
}

bool RawSocket::TrySend(const Bytes& bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = ::send(socket_.Get(), bytes.data() + done, bytes.size() - done,
                                    MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            done += static_cast<std::size_t>(sent);
        } else if (errno == EAGAIN) {
            if (!IsReady(socket_.Get(), POLLOUT, kBound)) {
                throw std::runtime_error("the peer does not read");
            }
        } else if (errno == EPIPE || errno == ECONNRESET) {
            return false;
        } else {
            Require(errno == EINTR, "send");
        }
    }
    return true;
}

std::size_t RawSocket::ReadSome(unsigned char* out, std::size_t count) const {
    for (;;) {
        const ssize_t got = ::recv(socket_.Get(), out, count, MSG_DONTWAIT);
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        if (errno == ECONNRESET) {
            return 0;
        }
        if (errno == EAGAIN) {
            if (!IsReady(socket_.Get(), POLLIN, kBound)) {
                throw std::runtime_error("nothing came within the bound");
            }
        } else {
            Require(errno == EINTR, "recv");
        }
    }
}

Bytes RawSocket::Read(std::size_t count) const {
    Bytes bytes(count);
    std::size_t done = 0;
    while (done < count) {
        const std::size_t got = ReadSome(bytes.data() + done, count - done);
        if (got == 0) {
            throw std::runtime_error(
                fmt::format("the connection ended after {} of {} bytes", done, count));
        }
        done += got;
    }
    return bytes;
}

Frame RawSocket::ReadFrame() const {
    Frame frame;
    const Bytes head = Read(kPreludeBytes);
    const FrameFault fault = DecodePrelude(head.data(), frame.prelude);
    if (fault != FrameFault::None) {
        throw std::runtime_error(DescribeFault(fault, head.data()));
    }
    frame.fixed = Read(frame.prelude.fixedBytes);
    frame.arena = Read(frame.prelude.arenaBytes);
    return frame;
}

Bytes RawSocket::ReadToEnd() const {
    Bytes all;
    std::array<unsigned char, 4096> some;
    for (;;) {
        const std::size_t got = ReadSome(some.data(), some.size());
        if (got == 0) {
            return all;
        }
        all.insert(all.end(), some.begin(), some.begin() + static_cast<std::ptrdiff_t>(got));
    }
}

void RawSocket::AwaitTaken() const {
    Await("the peer's reading", [this] {
        int left = 0;
        Require(::ioctl(socket_.Get(), SIOCOUTQ, &left) == 0, "SIOCOUTQ");
        return left == 0;
    });
}

bool RawSocket::HasInput() const {
    return IsReady(socket_.Get(), POLLIN, std::chrono::milliseconds(0));
}

std::pair<RawSocket, RawSocket> MakePair() {
    std::array<int, 2> ends{};
    Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "socketpair");
    return {RawSocket(UniqueFd(ends[0])), RawSocket(UniqueFd(ends[1]))};
}

SocketAddress::SocketAddress(const std::string& path) {
    const std::filesystem::path whole(path);
    folder_.Reset(::open(whole.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    Require(static_cast<bool>(folder_), "open");
    path_ = fmt::format("/proc/self/fd/{}/{}", folder_.Get(), whole.filename().string());
}

void SocketAddress::Connect(int socket) const {
    const sockaddr_un address = AddressOf(path_);
    Require(::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0,
            "connect");
}

void SocketAddress::Bind(int socket) const {
    const sockaddr_un address = AddressOf(path_);
    Require(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0,
            "bind");
}

UniqueFd NewUnconnectedSocket() {
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    Require(static_cast<bool>(socket), "socket");
    return socket;
}

RawSocket ConnectRaw(const std::string& path) {
    UniqueFd socket = NewUnconnectedSocket();
    SocketAddress(path).Connect(socket.Get());
    return RawSocket(std::move(socket));
}

RawListener::RawListener(const std::string& path, int backlog) : socket_(NewUnconnectedSocket()) {
    SocketAddress(path).Bind(socket_.Get());
    Require(::listen(socket_.Get(), backlog) == 0, "listen");
}

RawSocket RawListener::Accept() const {
    if (!IsReady(socket_.Get(), POLLIN, kBound)) {
        throw std::runtime_error("no connection came within the bound");
    }
    UniqueFd socket(::accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    Require(static_cast<bool>(socket), "accept");
    return RawSocket(std::move(socket));
}

bool RawListener::HasConnection() const {
    return IsReady(socket_.Get(), POLLIN, std::chrono::milliseconds(0));
}

}  // namespace zam_platform::testing
