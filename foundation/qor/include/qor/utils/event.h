#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>

#include "qor/mutex.h"

namespace qor::utils {

/// A signal between threads. Thread-safe; its mutex is a leaf, nothing else is locked while it is
/// held. `Event` below is the one with the system's clocks.
template <typename SteadyClock, typename WallClock>
class BasicEvent {
public:
    /// With `autoReset` a signal ends one wait and is consumed by it; without, it stays and ends
    /// all.
    explicit BasicEvent(bool autoReset) noexcept : autoReset_(autoReset) {}
    BasicEvent(const BasicEvent&) = delete;
    BasicEvent& operator=(const BasicEvent&) = delete;

    void Set() {
        MutexLock lock(mutex_);
        signalled_ = true;
        if (autoReset_) {
            condition_.notify_one();
        } else {
            condition_.notify_all();
        }
    }

    /// Waits for the signal, at most for `timeout`. Returns 0 when it came, 1 when the time ran
    /// out; times below 0 count as 0, and above 100 years as 100 years.
    int Wait(std::chrono::milliseconds timeout) {
        MutexLock lock(mutex_);
        const int result = signalled_ ? 0 : WaitForSignal(lock, timeout);
        if (autoReset_) {
            signalled_ = false;
        }
        return result;
    }

private:
    /// Waits longer than this are not told from it; sums with any clock's time stay in range.
    static constexpr std::chrono::milliseconds kLongestWait = std::chrono::hours(24 * 365 * 100);

    /// The deadline stands on the steady clock, so that setting the wall clock neither prolongs nor
    /// shortens the wait by more than one pass; each pass waits on the wall clock.
    int WaitForSignal(MutexLock& lock, std::chrono::milliseconds timeout) QOR_REQUIRES(mutex_) {
        const auto bounded = std::clamp(timeout, std::chrono::milliseconds(0), kLongestWait);
        const auto deadline = SteadyClock::now() + bounded;
        while (!signalled_) {
            const auto wallDeadline =
                WallClock::now() + std::chrono::duration_cast<typename WallClock::duration>(
                                       deadline - SteadyClock::now());
            lock.WaitUntil(condition_, wallDeadline);
            if (WallClock::now() >= wallDeadline && SteadyClock::now() >= deadline) {
                return signalled_ ? 0 : 1;
            }
        }
        return 0;
    }

    Mutex mutex_;
    std::condition_variable condition_;
    const bool autoReset_;
    bool signalled_ QOR_GUARDED_BY(mutex_) = false;
};

class Event : public BasicEvent<std::chrono::steady_clock, std::chrono::system_clock> {
public:
    using BasicEvent::BasicEvent;
};

}  // namespace qor::utils
