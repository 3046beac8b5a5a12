#include "clock.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <system_error>

namespace zamctl {
namespace {

// What the handlers can reach: they may touch lock-free atomics and the descriptor, nothing else.
// The descriptor makes a wait end that the signal came just before.
volatile std::sig_atomic_t g_interrupted = 0;
int g_wakeUp = -1;
struct sigaction g_previousInterrupt {};
struct sigaction g_previousTermination {};
struct sigaction g_previousPipe {};

// Written before the timer is set that leads to reading them.
const char* g_limitMessage = "";
int g_limitStatus = 0;

extern "C" void OnInterrupt(int /*signal*/) {
    // The thread that was interrupted may be about to look at its own.
    const int error = errno;
    g_interrupted = 1;
    const std::uint64_t one = 1;
    // Nothing can be done about a failure here, and the flag is set anyway.
    [[maybe_unused]] const ssize_t written = ::write(g_wakeUp, &one, sizeof(one));
    errno = error;
}

/// Between the end of the time and that of a message that nobody reads.
constexpr std::chrono::milliseconds kLastWords{50};

std::atomic_flag g_isEnding = ATOMIC_FLAG_INIT;

extern "C" void OnLimit(int /*signal*/) {
    // The timer goes on: where the write hangs, the next signal comes here, to any thread.
    if (!g_isEnding.test_and_set()) {
        [[maybe_unused]] const ssize_t written =
            ::write(STDERR_FILENO, g_limitMessage, std::strlen(g_limitMessage));
    }
    // Without destructors: they could wait for the very call that hangs.
    ::_exit(g_limitStatus);
}

int MakeEvent() {
    const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return event;
}

timeval ToTimeval(std::chrono::milliseconds time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    timeval value{};
    value.tv_sec = seconds.count();
    value.tv_usec = std::chrono::microseconds(time - seconds).count();
    return value;
}

void SetTimer(std::chrono::milliseconds time) {
    itimerval timer{};
    timer.it_value = ToTimeval(time);
    timer.it_interval = ToTimeval(kLastWords);
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

/// Whether the timer is set to an earlier moment already.
bool IsTimerSetWithin(std::chrono::milliseconds time) {
    itimerval timer{};
    ::getitimer(ITIMER_REAL, &timer);
    const timeval& left = timer.it_value;
    return timerisset(&left) &&
           std::chrono::seconds(left.tv_sec) + std::chrono::microseconds(left.tv_usec) <= time;
}

}  // namespace

SystemClock::~SystemClock() {
    if (isLimited_) {
        SetTimer({});
    }
    if (watchesReader_) {
        ::sigaction(SIGPIPE, &g_previousPipe, nullptr);
    }
    if (catching_) {
        ::sigaction(SIGINT, &g_previousInterrupt, nullptr);
        ::sigaction(SIGTERM, &g_previousTermination, nullptr);
        ::close(g_wakeUp);
        ::close(calls_);
        g_wakeUp = -1;
        g_interrupted = 0;
    }
}

Clock::TimePoint SystemClock::Now() const {
    return std::chrono::steady_clock::now();
}

Clock::WallTime SystemClock::WallNow() const {
    return std::chrono::system_clock::now();
}

bool SystemClock::SleepFor(std::chrono::nanoseconds duration) {
    const TimePoint end = Now() + duration;
    while (!Interrupted()) {
        const std::chrono::nanoseconds left = end - Now();
        if (left <= std::chrono::nanoseconds::zero()) {
            return true;
        }
        // Up, or the last part of a millisecond would be spun away; an hour at most, for poll
        // counts in an int.
        const std::chrono::milliseconds rounded = std::min<std::chrono::milliseconds>(
            std::chrono::ceil<std::chrono::milliseconds>(left), std::chrono::hours(1));
        pollfd wakeUp{.fd = g_wakeUp, .events = POLLIN, .revents = 0};
        ::poll(&wakeUp, 1, static_cast<int>(rounded.count()));
    }
    return false;
}

void SystemClock::CatchInterrupt() {
    if (catching_) {
        return;
    }
    calls_ = MakeEvent();
    try {
        g_wakeUp = MakeEvent();
    } catch (...) {
        ::close(calls_);
        throw;
    }
    struct sigaction action {};
    action.sa_handler = &OnInterrupt;
    // A second signal ends the process, should the first not get through; the library's calls go on
    // behind one.
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &g_previousInterrupt);
    ::sigaction(SIGTERM, &action, &g_previousTermination);
    catching_ = true;
}

bool SystemClock::Interrupted() const {
    return g_interrupted != 0;
}

void SystemClock::EndWithReader() {
    if (!watchesReader_) {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        ::sigaction(SIGPIPE, &ignore, &g_previousPipe);
        watchesReader_ = true;
    }
}

void SystemClock::Wake() noexcept {
    const std::uint64_t one = 1;
    // The counter cannot run over in the life of a machine.
    [[maybe_unused]] const ssize_t written = ::write(calls_, &one, sizeof(one));
}

Clock::Wakeup SystemClock::WaitForWake() {
    for (;;) {
        if (Interrupted()) {
            return Wakeup::Interrupted;
        }
        // Without events asked for, poll reports what it always does: an error or a hang-up, which
        // is what a pipe shows whose reader has gone.
        std::array<pollfd, 3> polled = {
            pollfd{.fd = g_wakeUp, .events = POLLIN, .revents = 0},
            pollfd{.fd = calls_, .events = POLLIN, .revents = 0},
            pollfd{.fd = watchesReader_ ? STDOUT_FILENO : -1, .events = 0, .revents = 0}};
        if (::poll(polled.data(), polled.size(), -1) < 0 || Interrupted()) {
            continue;
        }
        if (polled[2].revents != 0) {
            return Wakeup::ReaderGone;
        }
        std::uint64_t count = 0;
        if (::read(calls_, &count, sizeof(count)) > 0) {
            return Wakeup::Called;
        }
    }
}

void SystemClock::LimitRun(std::chrono::milliseconds limit, const char* message, int status) {
    g_limitMessage = message;
    g_limitStatus = status;
    if (!isLimited_) {
        struct sigaction action {};
        action.sa_handler = &OnLimit;
        action.sa_flags = static_cast<int>(SA_NODEFER);
        ::sigaction(SIGALRM, &action, nullptr);
        isLimited_ = true;
    }
    if (limit.count() == 0 || !IsTimerSetWithin(limit)) {
        SetTimer(limit);
    }
}

}  // namespace zamctl
