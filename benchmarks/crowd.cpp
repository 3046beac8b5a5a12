#include "crowd.h"

#include <grp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "bare_client.h"
#include "endpoints/endpoint_catalog.h"
#include "qx/messages.h"

namespace zam_bench {
namespace {

using zam_platform::FrameKind;
using zam_platform::kPreludeBytes;
using zam_platform::Prelude;

const zam_service::Endpoint* EndpointWith(std::uint16_t riid) {
    for (const zam_service::Endpoint& endpoint : zam_service::Endpoints()) {
        if (endpoint.riid == riid) {
            return &endpoint;
        }
    }
    return nullptr;
}

vd_message_header HeaderOf(const unsigned char* fixed) {
    vd_message_header header{};
    std::memcpy(&header, fixed, sizeof(header));
    return header;
}

/// The operation of a call whose header keeps the rules; null for every other frame.
const qx::OperationInfo* OperationOf(const Prelude& prelude, const unsigned char* body) {
    if (prelude.kind != FrameKind::Call || prelude.status != 0 ||
        prelude.fixedBytes < sizeof(vd_message_header)) {
        return nullptr;
    }
    const vd_message_header header = HeaderOf(body);
    const zam_service::Endpoint* const endpoint = EndpointWith(header.riid);
    if (endpoint == nullptr || header.operation >= endpoint->operations.size()) {
        return nullptr;
    }
    const qx::OperationInfo& operation = endpoint->operations[header.operation];
    return prelude.fixedBytes == operation.requestSize &&
                   header.fixedSize == operation.requestSize &&
                   prelude.arenaBytes <= operation.requestArena
               ? &operation
               : nullptr;
}

FrameBytes FrameOf(const Prelude& prelude) {
    FrameBytes frame(prelude.FrameBytes());
    zam_platform::EncodePrelude(prelude, frame.data());
    return frame;
}

/// The bare server's loop.
class BareLoop {
public:
    explicit BareLoop(int listener) : listener_(listener), epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
        Watch(listener_);
    }

    [[noreturn]] void Run() {
        std::array<epoll_event, 128> events{};
        for (;;) {
            const int count =
                ::epoll_wait(epoll_.Get(), events.data(), static_cast<int>(events.size()), -1);
            for (int index = 0; index < count; ++index) {
                const int ready = events[static_cast<std::size_t>(index)].data.fd;
                if (ready == listener_) {
                    Accept();
                } else if (!Serve(ready)) {
                    ::close(ready);
                    clients_.erase(ready);
                }
            }
        }
    }

private:
    struct Client {
        FrameBytes have;
        bool isGreeted = false;
    };

    void Watch(int descriptor) const {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = descriptor;
        ::epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, descriptor, &event);
    }

    static void Refuse(int client) {
        const FrameBytes frame = FrameOf({.kind = FrameKind::Refusal, .status = 19});
        static_cast<void>(::send(client, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
    }

    void Accept() {
        zam_platform::UniqueFd client(
            ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        ucred peer{};
        socklen_t length = sizeof(peer);
        if (!client || ::getsockopt(client.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
            return;
        }
        if (peer.uid != ::geteuid() && peer.gid == peer.uid) {
            Refuse(client.Get());
            return;
        }
        Watch(client.Get());
        clients_[client.Release()] = {};
    }

    bool Serve(int client) {
        FrameBytes& have = clients_[client].have;
        const std::size_t before = have.size();
        have.resize(before + 4096);
        const ssize_t got = ::recv(client, have.data() + before, 4096, 0);
        have.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got <= 0) {
            return got < 0 && errno == EAGAIN;
        }
        std::size_t at = 0;
        while (have.size() - at >= kPreludeBytes) {
            Prelude prelude;
            const unsigned char* const body = have.data() + at + kPreludeBytes;
            if (zam_platform::DecodePrelude(have.data() + at, prelude) !=
                zam_platform::FrameFault::None) {
                Refuse(client);
                return false;
            }
            if (have.size() - at < prelude.FrameBytes()) {
                break;
            }
            at += prelude.FrameBytes();
            if (!std::exchange(clients_[client].isGreeted, true)) {
                continue;
            }
            const qx::OperationInfo* const operation = OperationOf(prelude, body);
            if (operation == nullptr) {
                Refuse(client);
                return false;
            }
            const FrameBytes answer = FrameOf({.kind = FrameKind::Answer,
                                               .callNumber = prelude.callNumber,
                                               .fixedBytes = operation->responseSize});
            static_cast<void>(::send(client, answer.data(), answer.size(), MSG_NOSIGNAL));
        }
        have.erase(have.begin(), have.begin() + static_cast<std::ptrdiff_t>(at));
        return true;
    }

    int listener_;
    zam_platform::UniqueFd epoll_;
    std::unordered_map<int, Client> clients_;
};

zam_platform::UniqueFd ListenAt(const std::string& path) {
    zam_platform::UniqueFd listener(
        ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = AddressOf(path);
    ::unlink(path.c_str());
    if (!listener ||
        ::bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::chmod(path.c_str(), 0666) != 0 || ::listen(listener.Get(), SOMAXCONN) != 0) {
        throw std::runtime_error("cannot listen at " + path);
    }
    return listener;
}

/// The server admits members of the group; nobody else is of a group of their own number.
void BecomeCrowd(bool isAdmitted) {
    if (::geteuid() != 0) {
        return;
    }
    const group* const entry = ::getgrnam(kCrowdGroup);
    const gid_t own = isAdmitted && entry != nullptr ? entry->gr_gid : kCrowdUser;
    if (::setgroups(0, nullptr) != 0 || ::setgid(own) != 0 || ::setuid(kCrowdUser) != 0) {
        throw std::runtime_error("cannot be another user");
    }
}

}  // namespace

FrameBytes CallFrame(const char* interface, std::uint16_t operation, std::uint64_t field,
                     const std::string& arena) {
    const zam_service::Endpoint& endpoint = zam_service::EndpointOf(interface);
    const std::uint32_t fixedBytes = endpoint.operations[operation].requestSize;
    FrameBytes frame = FrameOf({.kind = FrameKind::Call,
                                .callNumber = 1,
                                .fixedBytes = fixedBytes,
                                .arenaBytes = static_cast<std::uint32_t>(arena.size())});
    const vd_message_header header{
        .riid = endpoint.riid, .operation = operation, .fixedSize = fixedBytes, .reserved = {}};
    unsigned char* const fixed = frame.data() + kPreludeBytes;
    std::memcpy(fixed, &header, sizeof(header));
    if (fixedBytes >= sizeof(header) + sizeof(field)) {
        std::memcpy(fixed + sizeof(header), &field, sizeof(field));
    }
    arena.copy(reinterpret_cast<char*>(fixed + fixedBytes), arena.size());
    return frame;
}

CrowdClient::CrowdClient(const std::string& path) : socket_(ConnectTo(path)) {
    // A server that does not answer fails the benchmark.
    const timeval longest{.tv_sec = 60, .tv_usec = 0};
    ::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof(longest));
}

bool CrowdClient::Greet(std::uint32_t client) const {
    FrameBytes frame = FrameOf({.kind = FrameKind::Hello, .fixedBytes = zam_platform::kTokenBytes});
    const std::uint32_t token[] = {client, static_cast<std::uint32_t>(::geteuid()), 1, 1};
    std::memcpy(frame.data() + kPreludeBytes, token, sizeof(token));
    return Send(frame);
}

bool CrowdClient::Receive(FrameBytes& fixed) const {
    std::array<unsigned char, kPreludeBytes> head{};
    Prelude prelude;
    if (!ReceiveAll(socket_.Get(), head.data(), head.size()) ||
        zam_platform::DecodePrelude(head.data(), prelude) != zam_platform::FrameFault::None ||
        prelude.kind == FrameKind::Refusal) {
        return false;
    }
    fixed.resize(prelude.FrameBytes() - kPreludeBytes);
    return ReceiveAll(socket_.Get(), fixed.data(), fixed.size());
}

Load::Load(const std::string& folder, bool isAdmitted, const std::function<LoadOutcome()>& body)
    : result_(MakeSocketPair()), child_([&] {
          result_.client.Reset();
          if (::chdir(folder.c_str()) != 0) {
              throw std::runtime_error("no folder " + folder);
          }
          BecomeCrowd(isAdmitted);
          const LoadOutcome outcome = body();
          if (::write(result_.server.Get(), &outcome, sizeof(outcome)) != sizeof(outcome)) {
              throw std::runtime_error("nobody takes a load's outcome");
          }
      }) {
    result_.server.Reset();
}

bool Load::HasEnded() {
    const ssize_t got = ::recv(result_.client.Get(), &outcome_, sizeof(outcome_), MSG_DONTWAIT);
    if (got == 0) {
        throw std::runtime_error("a load failed");
    }
    return got == sizeof(outcome_);
}

BareCrowdServer::BareCrowdServer(const std::string& path)
    : listener_(ListenAt(path)), child_([this] { BareLoop(listener_.Get()).Run(); }) {
    listener_.Reset();
}

}  // namespace zam_bench
