#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "call_scope.h"
#include "data_handler/handler_threads.h"
#include "qor/mutex.h"
#include "zam_connector/i_change_observer.h"
#include "zam_connector/subscription_cookie.h"

namespace zam_connector::proxy {

/// The observers of one kind of change. Observers are not owned; one that has expired stays until
/// it is removed. Thread-safe; no lock is held while an observer is called.
template <typename T>
class ObserverGroup {
public:
    using Observer = qor::observer::IChangeObserver<T, int>;

    /// `cookieCounter` holds the last cookie given, is shared with the owner's other groups, and
    /// must outlive this one.
    explicit ObserverGroup(std::atomic<std::uint64_t>& cookieCounter) noexcept
        : cookieCounter_(&cookieCounter) {}

    SubscriptionCookie Add(std::weak_ptr<Observer> observer) {
        qor::MutexLock lock(mutex_);
        const SubscriptionCookie cookie(++*cookieCounter_);
        observers_.emplace(cookie, std::move(observer));
        return cookie;
    }

    /// Does nothing when the cookie is not of this group.
    void Remove(const SubscriptionCookie& cookie) {
        qor::MutexLock lock(mutex_);
        observers_.erase(cookie);
    }

    bool IsEmpty() const {
        qor::MutexLock lock(mutex_);
        return observers_.empty();
    }

    /// Calls those that are alive, in the order of their cookies. What one throws goes through.
    void Notify(const T& value) const {
        for (const std::weak_ptr<Observer>& candidate : Observers()) {
            if (const std::shared_ptr<Observer> observer = candidate.lock()) {
                const HandlerThreads::InObserver inside;
                const ObserverScope scope;
                observer->OnChange(value);
            }
        }
    }

private:
    std::vector<std::weak_ptr<Observer>> Observers() const {
        std::vector<std::weak_ptr<Observer>> observers;
        qor::MutexLock lock(mutex_);
        observers.reserve(observers_.size());
        for (const auto& [cookie, observer] : observers_) {
            observers.push_back(observer);
        }
        return observers;
    }

    mutable qor::Mutex mutex_;
    std::map<SubscriptionCookie, std::weak_ptr<Observer>> observers_ QOR_GUARDED_BY(mutex_);
    std::atomic<std::uint64_t>* const cookieCounter_;
};

}  // namespace zam_connector::proxy
