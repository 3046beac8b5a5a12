#include "client/socket_channel.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <tuple>
#include <utility>

#include "client/answer_head.h"
#include "zam_platform/peer_credentials.h"
#include "zam_platform/posix_error.h"

namespace zam_platform {
namespace {

/// Least time that the kernel is told to wait for an answer.
constexpr std::chrono::milliseconds kLeastReadBound{20};

std::atomic<std::uint64_t> g_ended{0};

/// Counted once the end is done: who saw the count earlier might send a call in front of the end.
void CountEnd() noexcept {
    g_ended.fetch_add(1, std::memory_order_relaxed);
}

/// Steps over the first `bytes` bytes of a list of buffers.
std::span<iovec> Advance(std::span<iovec> parts, std::size_t bytes) {
    while (!parts.empty() && bytes >= parts.front().iov_len) {
        bytes -= parts.front().iov_len;
        parts = parts.subspan(1);
    }
    if (!parts.empty()) {
        parts.front().iov_base = static_cast<unsigned char*>(parts.front().iov_base) + bytes;
        parts.front().iov_len -= bytes;
    }
    return parts;
}

/// Buffers are shared between reading and writing by the kernel's interface; writing only reads.
iovec Part(const void* data, std::size_t bytes) {
    return {const_cast<void*>(data), bytes};
}

/// Waits until the socket is ready; false when the deadline has passed.
bool WaitUntilReady(int socket, short events, const Deadline& deadline) {
    for (;;) {
        int timeoutMs = -1;
        if (deadline) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                *deadline - std::chrono::steady_clock::now());
            timeoutMs = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
        }
        pollfd poll{.fd = socket, .events = events, .revents = 0};
        const int ready = ::poll(&poll, 1, timeoutMs);
        if (ready > 0) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            throw PosixError("wait on the connection", errno);
        }
        if (deadline && std::chrono::steady_clock::now() >= *deadline) {
            return false;
        }
    }
}

bool IsPeerGone(int errorNumber) {
    return errorNumber == EPIPE || errorNumber == ECONNRESET || errorNumber == ENOTCONN;
}

/// What a standard descriptor's place was taken by, in another place: where one of those is closed
/// the next file gets it, and what the process logs or prints would go there.
UniqueFd AboveStandard(UniqueFd file) {
    if (file && file.Get() <= STDERR_FILENO) {
        return UniqueFd(::fcntl(file.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    return file;
}

/// Room for the files that may come with a read. Of more than there is room for, the kernel closes
/// the rest.
class FileRoom {
public:
    explicit FileRoom(msghdr& message) noexcept {
        message.msg_control = bytes_.data();
        message.msg_controllen = bytes_.size();
    }

    /// Takes what has come.
    static void Take(msghdr& message, PassedFiles& files) noexcept {
        std::size_t count = 0;
        for (cmsghdr* control = CMSG_FIRSTHDR(&message); control != nullptr;
             control = CMSG_NXTHDR(&message, control)) {
            if (control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS) {
                continue;
            }
            const std::size_t came = (control->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (std::size_t index = 0; index < came; ++index) {
                int descriptor = -1;
                std::memcpy(&descriptor, CMSG_DATA(control) + index * sizeof(int), sizeof(int));
                UniqueFd file = AboveStandard(UniqueFd(descriptor));
                if (count < files.size()) {
                    files[count++] = std::move(file);
                }
            }
        }
    }

private:
    alignas(cmsghdr) std::array<unsigned char,
                                CMSG_SPACE(std::tuple_size_v<PassedFiles> * sizeof(int))> bytes_{};
};

/// One read into the parts. Gives 0 when nothing has come before `deadline`. One that blocks in the
/// read itself saves the wait. Throws at the end of the connection. `files` may be null.
std::size_t ReadSome(int socket, std::span<iovec> parts, const Deadline& deadline, bool blocks,
                     PassedFiles* files) {
    for (;;) {
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        std::optional<FileRoom> room;
        if (files != nullptr) {
            room.emplace(message);
        }
        const ssize_t got =
            ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC | (blocks ? 0 : MSG_DONTWAIT));
        if (got > 0) {
            if (files != nullptr) {
                FileRoom::Take(message, *files);
            }
            return static_cast<std::size_t>(got);
        }
        if (got == 0) {
            throw PlatformError(kStatusBroken, "the service closed the connection");
        }
        if (errno == EAGAIN) {
            if (!WaitUntilReady(socket, POLLIN, deadline)) {
                return 0;
            }
        } else if (errno != EINTR) {
            throw PosixError("read from the connection", errno);
        } else if (deadline) {
            blocks = false;  // the kernel would begin its bound anew
        }
    }
}

/// Bounds how long a blocking operation waits; 0: not at all. `option` is `SO_SNDTIMEO`, which
/// bounds a connect too, or `SO_RCVTIMEO`.
void SetTimeLimit(int socket, int option, std::chrono::microseconds limit) {
    const timeval time{.tv_sec = limit.count() / 1'000'000, .tv_usec = limit.count() % 1'000'000};
    if (::setsockopt(socket, SOL_SOCKET, option, &time, sizeof(time)) != 0) {
        throw PosixError("time limit of a connection", errno);
    }
}

/// Connects within the deadline; `shown` names the socket in errors.
void ConnectTo(int socket, const sockaddr_un& address, const Deadline& deadline,
               const std::string& shown) {
    for (;;) {
        if (deadline) {
            const auto left = std::chrono::ceil<std::chrono::microseconds>(
                *deadline - std::chrono::steady_clock::now());
            SetTimeLimit(socket, SO_SNDTIMEO, std::max(left, std::chrono::microseconds(1)));
        }
        if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ||
            errno == EISCONN) {
            break;
        }
        if (errno == EAGAIN) {
            // The kernel counts in ticks of its clock, and may give up to one of them too few.
            if (deadline && std::chrono::steady_clock::now() < *deadline) {
                continue;
            }
            throw PlatformError(kStatusTimeout,
                                shown + ": the service did not take the connection in time");
        }
        if (errno != EINTR) {
            throw PosixError(shown, errno);
        }
    }
    if (deadline) {
        // The option bounds writes as well, which have their own way to keep the deadline.
        SetTimeLimit(socket, SO_SNDTIMEO, {});
    }
}

/// A service that closes a connection says why before it does; throws that when it is there.
void ThrowPendingRefusal(int socket) {
    std::array<unsigned char, kPreludeBytes> head;
    const ssize_t got = ::recv(socket, head.data(), head.size(), MSG_DONTWAIT);
    Prelude prelude;
    if (got == static_cast<ssize_t>(head.size()) &&
        DecodePrelude(head.data(), prelude) == FrameFault::None &&
        prelude.kind == FrameKind::Refusal && prelude.status != kStatusOk) {
        throw Refused(prelude);
    }
}

PlatformError NotInTime(std::size_t got, std::size_t wanted) {
    return {kStatusTimeout,
            got == 0 ? std::string("no answer came in time")
                     : fmt::format("only {} of {} bytes of the answer came in time", got, wanted)};
}

UniqueFd NewSocket() {
    UniqueFd socket = AboveStandard(UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)));
    if (!socket) {
        throw PosixError("new socket", errno);
    }
    return socket;
}

}  // namespace

UniqueFd ConnectToService(const RuntimeDirectory& directory, const std::string& service,
                          const Deadline& deadline) {
    const std::string name = SocketName(service);
    const std::string shown = fmt::format("socket '{}/{}'", directory.Path(), name);

    // The socket itself is opened first, so that what is checked is what is connected to.
    const ExaminedFile found = ExamineSocket(directory.Descriptor(), directory.Owner(), name);
    if (found.fault == vd::FileFault::WrongKind) {
        throw PlatformError(kStatusUntrusted, shown + ": is no socket");
    }
    if (found.fault == vd::FileFault::Owner) {
        throw PlatformError(kStatusUntrusted,
                            fmt::format("{}: belongs to user {}, not to root or user {}, who owns "
                                        "the directory",
                                        shown, found.status.st_uid, directory.Owner()));
    }
    if (found.fault != vd::FileFault::None) {
        throw PosixError(shown, found.error);
    }

    UniqueFd socket = NewSocket();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const auto written = fmt::format_to_n(address.sun_path, sizeof(address.sun_path) - 1,
                                          "/proc/self/fd/{}", found.descriptor.Get());
    *written.out = '\0';
    ConnectTo(socket.Get(), address, deadline, shown);

    const PeerCredentials peer = QueryPeerCredentials(socket.Get(), false);
    if (peer.user != 0 && peer.user != directory.Owner()) {
        throw PlatformError(kStatusUntrusted,
                            fmt::format("{}: the service runs as user {}, not as root or user {}, "
                                        "who owns the directory",
                                        shown, peer.user, directory.Owner()));
    }
    return socket;
}

SocketChannel::SocketChannel(UniqueFd socket, const SessionToken& token,
                             std::chrono::milliseconds frameTimeout) noexcept
    : socket_(std::move(socket)), token_(token), frameTimeout_(frameTimeout) {}

SocketChannel::~SocketChannel() {
    if (socket_) {
        socket_.Reset();
        CountEnd();
    }
}

std::uint64_t SocketChannel::Ended() noexcept {
    return g_ended.load(std::memory_order_relaxed);
}

bool SocketChannel::Send(const OutgoingFrame& frame, const Deadline& deadline) {
    std::array<unsigned char, kPreludeBytes> hello;
    std::array<unsigned char, kPreludeBytes> head;
    std::array<iovec, 5> buffers;
    std::size_t count = 0;
    if (!greeted_) {
        EncodePrelude({.kind = FrameKind::Hello, .fixedBytes = kTokenBytes}, hello.data());
        buffers[count++] = Part(hello.data(), hello.size());
        buffers[count++] = Part(token_.data(), token_.size());
    }
    EncodePrelude(frame.prelude, head.data());
    buffers[count++] = Part(head.data(), head.size());
    buffers[count++] = Part(frame.fixed, frame.prelude.fixedBytes);
    if (frame.prelude.arenaBytes != 0) {
        buffers[count++] = Part(frame.arena, frame.prelude.arenaBytes);
    }

    bool started = false;
    std::span<iovec> parts(buffers.data(), count);
    while (!parts.empty()) {
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        const ssize_t sent =
            ::sendmsg(socket_.Get(), &message, MSG_NOSIGNAL | (deadline ? MSG_DONTWAIT : 0));
        if (sent >= 0) {
            started = started || sent > 0;
            parts = Advance(parts, static_cast<std::size_t>(sent));
            continue;
        }
        if (errno == EAGAIN) {
            if (!WaitUntilReady(socket_.Get(), POLLOUT, deadline)) {
                throw PlatformError(kStatusTimeout, "the service did not take the request in time");
            }
        } else if (IsPeerGone(errno)) {
            const int error = errno;
            if (!started) {
                return false;
            }
            ThrowPendingRefusal(socket_.Get());
            throw PosixError("write to the connection", error);
        } else if (errno != EINTR) {
            throw PosixError("write to the connection", errno);
        }
    }
    greeted_ = true;
    return true;
}

bool SocketChannel::Receive(IncomingFrame& frame, const Deadline& deadline) {
    alignas(8) std::array<unsigned char, kPreludeBytes> head;
    std::array<iovec, 3> buffers = {Part(head.data(), head.size()),
                                    Part(frame.fixed, frame.fixedBytes), iovec{}};
    std::size_t count = 2;
    if (frame.arena != nullptr) {
        buffers[count++] = Part(frame.arena->base, frame.arena->capacity);
    }

    // The head, the fixed part and the arena are read straight to where they belong; most answers
    // come whole with the first read.
    Prelude prelude;
    const std::size_t bytesBeforeArena = kPreludeBytes + frame.fixedBytes;
    bool headKnown = false;
    std::size_t wanted = kPreludeBytes;
    const std::size_t got =
        ReadAll(std::span(buffers.data(), count), 0, deadline, deadline, [&](std::size_t have) {
            if (frame.arena != nullptr && have > bytesBeforeArena) {
                frame.arena->used = static_cast<std::uint32_t>(have - bytesBeforeArena);
            }
            if (!headKnown && have >= kPreludeBytes) {
                headKnown = true;
                prelude = ReadHead(head.data());
                CheckAnswer(prelude, frame);
                wanted = prelude.FrameBytes();
            }
            return wanted;
        });
    if (got > wanted) {
        throw PlatformError(kStatusProtocol, fmt::format("{} bytes behind an answer of {} bytes",
                                                         got - wanted, wanted));
    }
    frame.status = prelude.status;
    return true;
}

Prelude SocketChannel::ReceiveHead(const Deadline& deadline, PassedFiles* files) {
    alignas(8) std::array<unsigned char, kPreludeBytes> head;
    std::array<iovec, 1> parts = {Part(head.data(), head.size())};
    ReadAll(
        parts, 0, deadline, deadline, [](std::size_t /*have*/) { return kPreludeBytes; }, files);
    return ReadHead(head.data());
}

void SocketChannel::ReceiveBody(const Prelude& prelude, IncomingFrame& frame,
                                const Deadline& deadline) {
    CheckAnswer(prelude, frame);
    std::array<iovec, 2> parts = {Part(frame.fixed, prelude.fixedBytes), iovec{}};
    std::size_t count = 1;
    if (prelude.arenaBytes != 0) {
        parts[count++] = Part(frame.arena->base, prelude.arenaBytes);
    }
    const std::size_t bytesBeforeArena = kPreludeBytes + prelude.fixedBytes;
    const Deadline limit = EndOfFrame(deadline);
    ReadAll(std::span(parts.data(), count), kPreludeBytes, limit, deadline, [&](std::size_t have) {
        if (have > bytesBeforeArena) {
            frame.arena->used = static_cast<std::uint32_t>(have - bytesBeforeArena);
        }
        return prelude.FrameBytes();
    });
    frame.status = prelude.status;
}

template <typename Wanted>
std::size_t SocketChannel::ReadAll(std::span<iovec> parts, std::size_t have, Deadline limit,
                                   const Deadline& deadline, Wanted&& wanted, PassedFiles* files) {
    std::size_t total = wanted(have);
    while (have < total) {
        const bool blocks = !limit || (have == 0 && BoundReads(*limit));
        const std::size_t bytes = ReadSome(socket_.Get(), parts, limit, blocks, files);
        if (bytes == 0) {
            throw NotInTime(have, total);
        }
        const bool first = have == 0;
        have += bytes;
        parts = Advance(parts, bytes);
        total = wanted(have);
        if (first && have < total) {
            limit = EndOfFrame(deadline);
        }
    }
    return have;
}

Deadline SocketChannel::EndOfFrame(const Deadline& deadline) const {
    const auto end = std::chrono::steady_clock::now() + frameTimeout_;
    return deadline ? std::min(*deadline, end) : end;
}

bool SocketChannel::BoundReads(const std::chrono::steady_clock::time_point& deadline) {
    const auto left =
        std::chrono::floor<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
    // The kernel counts in ticks of its clock; who has little time left waits in another way.
    if (left < kLeastReadBound) {
        return false;
    }
    // Told in powers of two, and only when it is too long or far too short, so that calls with
    // deadlines of one size cost no system call for it. A read that it ends too early waits for the
    // rest in the other way.
    constexpr int kFarTooShort = 4;
    if (readBound_.count() == 0 || readBound_ > left || readBound_ * kFarTooShort < left) {
        const auto bound = std::bit_floor(static_cast<std::uint64_t>(left.count()));
        readBound_ = std::chrono::microseconds(bound);
        SetTimeLimit(socket_.Get(), SO_RCVTIMEO, readBound_);
    }
    return true;
}

void SocketChannel::Interrupt() noexcept {
    ::shutdown(socket_.Get(), SHUT_RDWR);
    CountEnd();
}

void SocketChannel::Abandon() noexcept {
    socket_.Reset();
}

}  // namespace zam_platform
