#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "zam_connector/i_change_observer.h"

namespace zam_connector::testing {

/// Longest wait for something that must happen; only a broken program reaches it.
inline constexpr std::chrono::seconds kObserverPatience{60};

/// An observer that keeps what it is told.
///
///     auto observer = std::make_shared<RecordingObserver<ZamConnectorState>>();
///     subscriber->SubscribeOnStateChange(observer, cookie);
///     ...
///     ASSERT_TRUE(observer->WaitForCount(2));
///
/// Thread-safe.
template <typename T>
class RecordingObserver final : public qor::observer::IChangeObserver<T, int> {
public:
    using Action = std::function<void(const T&)>;

    RecordingObserver() = default;

    /// `action` is run in every call, after the value has been kept and with no lock held. What it
    /// throws goes to the library.
    explicit RecordingObserver(Action action) : action_(std::move(action)) {}

    int OnChange(const T& value) override {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            values_.push_back(value);
            threads_.push_back(std::this_thread::get_id());
        }
        changed_.notify_all();
        if (action_) {
            action_(value);
        }
        return 0;
    }

    /// What was told so far, oldest first.
    std::vector<T> Values() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return values_;
    }

    /// The thread of each call.
    std::vector<std::thread::id> Threads() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return threads_;
    }

    std::size_t Count() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return values_.size();
    }

    /// Waits until so many calls have come; false when the time ran out.
    bool WaitForCount(std::size_t count,
                      std::chrono::milliseconds patience = kObserverPatience) const {
        return WaitUntil([count](const std::vector<T>& values) { return values.size() >= count; },
                         patience);
    }

    /// Waits until `isEnough(values)`; false when the time ran out. `isEnough` runs with the
    /// observer's lock held.
    template <typename IsEnough>
    bool WaitUntil(IsEnough isEnough,
                   std::chrono::milliseconds patience = kObserverPatience) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, patience, [&] { return isEnough(std::as_const(values_)); });
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<T> values_;
    std::vector<std::thread::id> threads_;
    const Action action_;
};

}  // namespace zam_connector::testing
