#include "log/stderr_output.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>

#include "log/log_line.h"
#include "zam_platform/unique_fd.h"

namespace zam_platform {
namespace {

using Clock = std::chrono::steady_clock;

/// Keeps the calling thread from the signals that a write can raise: of a pipe without a reader, of
/// a limit on the size of files, of a terminal that stops who writes in the background.
class WithoutSignals {
public:
    WithoutSignals() noexcept {
        sigset_t mask;
        ::sigemptyset(&mask);
        for (const int signal : {SIGPIPE, SIGXFSZ, SIGTTOU}) {
            ::sigaddset(&mask, signal);
        }
        ::pthread_sigmask(SIG_BLOCK, &mask, &before_);
        // Only a signal that was held back before can be pending, and stays so.
        ::sigemptyset(&pending_);
        if (::sigismember(&before_, SIGPIPE) == 1 || ::sigismember(&before_, SIGXFSZ) == 1) {
            ::sigpending(&pending_);
        }
    }
    WithoutSignals(const WithoutSignals&) = delete;
    WithoutSignals& operator=(const WithoutSignals&) = delete;
    ~WithoutSignals() {
        const int error = errno;
        ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }

    /// Takes back the signal that a write has raised which failed with `error`.
    void TakeBack(int error) const noexcept {
        const int signal = error == EPIPE ? SIGPIPE : SIGXFSZ;
        if ((error == EPIPE || error == EFBIG) && ::sigismember(&pending_, signal) == 0) {
            sigset_t raised;
            ::sigemptyset(&raised);
            ::sigaddset(&raised, signal);
            const timespec now{};
            ::sigtimedwait(&raised, nullptr, &now);
        }
    }

private:
    sigset_t before_;
    sigset_t pending_;
};

/// What a descriptor refers to, for the time of one text.
class Target {
public:
    explicit Target(int descriptor) noexcept : descriptor_(descriptor) {
        struct stat status {};
        // Its own description must not be writable where this one is not.
        const int flags = ::fcntl(descriptor, F_GETFL);
        if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY || ::fstat(descriptor, &status) != 0) {
            kind_ = Kind::None;
        } else if (S_ISSOCK(status.st_mode)) {
            kind_ = Kind::Socket;
        } else if (S_ISREG(status.st_mode)) {
            kind_ = Kind::File;
        } else if (S_ISFIFO(status.st_mode) || ::isatty(descriptor) == 1) {
            OpenAnew();
        }
    }

    /// As `::write`, but does not block for want of room.
    ssize_t Write(std::string_view text) const noexcept {
        switch (kind_) {
            case Kind::None:
                errno = EBADF;
                return -1;
            case Kind::Socket:
                return ::send(descriptor_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            case Kind::Own:
                return ::write(own_.Get(), text.data(), text.size());
            case Kind::File:
                return ::write(descriptor_, text.data(), text.size());
            case Kind::Shared:
                break;
        }
        // Whatever other writers do meanwhile: pipes of newer kernels can.
        const iovec piece{.iov_base = const_cast<char*>(text.data()), .iov_len = text.size()};
        const ssize_t written = ::pwritev2(descriptor_, &piece, 1, -1, RWF_NOWAIT);
        if (written >= 0 || errno == EAGAIN || errno == EINTR || errno == EPIPE || errno == EBADF) {
            return written;
        }
        // Older kernels, terminals and filters of system calls leave a gap: another writer may take
        // the room that was found, and then this waits for a reader. A pipe that has any room takes
        // this much.
        return WaitForRoom(Clock::time_point::min())
                   ? ::write(descriptor_, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF))
                   : -1;
    }

    /// False, with EAGAIN, when there is no room before `end`.
    bool WaitForRoom(Clock::time_point end) const noexcept {
        for (;;) {
            using std::chrono::ceil;
            using std::chrono::milliseconds;
            const auto now = Clock::now();
            const auto left = end <= now ? milliseconds{0} : ceil<milliseconds>(end - now);
            pollfd room{.fd = own_ ? own_.Get() : descriptor_, .events = POLLOUT, .revents = 0};
            const int found = ::poll(&room, 1, static_cast<int>(left.count()));
            if (found > 0) {
                return true;
            }
            if (found == 0 || errno != EINTR) {
                errno = EAGAIN;
                return false;
            }
        }
    }

private:
    enum class Kind { None, Socket, File, Own, Shared };

    /// A description of its own: O_NONBLOCK on the one that there is would hold for every process
    /// that shares it.
    void OpenAnew() noexcept {
        std::array<char, 32> path;
        BoundedText text(path.data(), path.size() - 1);
        text.Put("/proc/self/fd/");
        text.Put(static_cast<long long>(descriptor_));
        path[text.Size()] = '\0';
        own_ = UniqueFd(::open(path.data(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (own_) {
            kind_ = Kind::Own;
        } else if (errno == ENXIO) {
            kind_ = Kind::None;  // nobody reads
        }
    }

    int descriptor_;
    UniqueFd own_;
    /// Where there is no descriptor left, no /proc, or no right to open it: asked before each
    /// write.
    Kind kind_ = Kind::Shared;
};

}  // namespace

bool StderrOutput::Write(std::string_view text, Clock::time_point end) noexcept {
    const WithoutSignals withoutSignals;
    const Target target(descriptor_);
    bool hasBegun = false;
    while (!text.empty()) {
        const ssize_t written = target.Write(text);
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
            hasBegun = true;
            isFull_ = false;
        } else if (written < 0 && errno == EAGAIN) {
            if (isFull_ || Clock::now() >= end || !target.WaitForRoom(end)) {
                isFull_ = true;
                break;
            }
        } else if (written == 0 || errno != EINTR) {
            withoutSignals.TakeBack(written == 0 ? 0 : errno);
            break;
        }
    }
    isTorn_ = !text.empty() && (hasBegun || isTorn_);
    return text.empty();
}

}  // namespace zam_platform
