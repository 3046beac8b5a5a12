#include "log/timed_lock.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

namespace zam_platform {

static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

bool TimedLock::Lock(std::chrono::nanoseconds most) noexcept {
    std::uint32_t expected = kFree;
    if (state_.compare_exchange_strong(expected, kHeld, std::memory_order_acquire)) {
        return true;
    }
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + most;
    // Whoever has waited leaves the mark behind, since there may be others.
    while (state_.exchange(kHeldAndAwaited, std::memory_order_acquire) != kFree) {
        const auto left = end - Clock::now();
        if (left <= left.zero()) {
            return false;
        }
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec timeout{.tv_sec = seconds.count(), .tv_nsec = (left - seconds).count()};
        ::syscall(SYS_futex, &state_, FUTEX_WAIT_PRIVATE, kHeldAndAwaited, &timeout, nullptr, 0);
    }
    return true;
}

void TimedLock::Unlock() noexcept {
    if (state_.exchange(kFree, std::memory_order_release) == kHeldAndAwaited) {
        ::syscall(SYS_futex, &state_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
}

}  // namespace zam_platform
