#include "clock.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>

namespace zamctl {
namespace {

// What the handler can reach: it may touch lock-free atomics and the descriptor, nothing else. The
// descriptor makes a sleep end that the signal came just before.
volatile std::sig_atomic_t g_interrupted = 0;
int g_wakeUp = -1;
struct sigaction g_previous {};

extern "C" void OnInterrupt(int /*signal*/) {
    const int error = errno;
    g_interrupted = 1;
    const std::uint64_t one = 1;
    // Nothing can be done about a failure here, and the flag is set anyway.
    [[maybe_unused]] const ssize_t written = ::write(g_wakeUp, &one, sizeof(one));
    errno = error;
}

}  // namespace

SystemClock::~SystemClock() {
    if (catching_) {
        ::sigaction(SIGINT, &g_previous, nullptr);
        ::close(g_wakeUp);
        g_wakeUp = -1;
        g_interrupted = 0;
    }
}

Clock::TimePoint SystemClock::Now() const {
    return std::chrono::steady_clock::now();
}

bool SystemClock::SleepFor(std::chrono::nanoseconds duration) {
    const TimePoint end = Now() + duration;
    while (!Interrupted()) {
        const std::chrono::nanoseconds left = end - Now();
        if (left <= std::chrono::nanoseconds::zero()) {
            return true;
        }
        const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
        const timespec timeout{.tv_sec = seconds.count(), .tv_nsec = (left - seconds).count()};
        pollfd wakeUp{.fd = g_wakeUp, .events = POLLIN, .revents = 0};
        ::ppoll(&wakeUp, 1, &timeout, nullptr);
    }
    return false;
}

void SystemClock::CatchInterrupt() {
    if (catching_) {
        return;
    }
    g_wakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (g_wakeUp < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    struct sigaction action {};
    action.sa_handler = &OnInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &g_previous);
    catching_ = true;
}

bool SystemClock::Interrupted() const {
    return g_interrupted != 0;
}

}  // namespace zamctl
