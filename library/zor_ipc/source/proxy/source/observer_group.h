#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>

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
        if (entries_.emplace(cookie, Entry{std::move(observer), lastRound_ + 1}).second) {
            ++count_;
        }
        return cookie;
    }

    /// Does nothing when the cookie is not of this group.
    void Remove(const SubscriptionCookie& cookie) {
        qor::MutexLock lock(mutex_);
        const auto entry = entries_.find(cookie);
        if (entry == entries_.end() || entry->second.IsRemoved()) {
            return;
        }
        --count_;
        entry->second.lastRound = lastRound_;
        EraseRemoved();
    }

    bool IsEmpty() const {
        qor::MutexLock lock(mutex_);
        return count_ == 0;
    }

    /// Calls those that are alive, in the order of their cookies: those of the round's beginning,
    /// whoever is added and removed meanwhile. What one throws goes through. Takes no memory, for
    /// want of which nobody would be told any more.
    void Notify(const T& value) {
        const Round round(*this);
        for (auto entry = round.First(); entry != round.End(); entry = round.Next(entry)) {
            const HandlerThreads::InObserver inside;
            const ObserverScope scope;
            // Let go within the scope: its destructor may be the observer's.
            if (const std::shared_ptr<Observer> observer = entry->second.observer.lock()) {
                observer->OnChange(value);
            }
        }
    }

private:
    static constexpr std::uint64_t kNever = ~std::uint64_t{0};

    struct Entry {
        std::weak_ptr<Observer> observer;
        std::uint64_t firstRound;          ///< that tells it
        std::uint64_t lastRound = kNever;  ///< set when it is removed

        bool IsRemoved() const noexcept { return lastRound != kNever; }
    };

    using Entries = std::map<SubscriptionCookie, Entry>;

    /// While one lives, no entry is erased.
    class Round {
    public:
        explicit Round(ObserverGroup& group) : group_(group) {
            qor::MutexLock lock(group_.mutex_);
            ++group_.rounds_;
            number_ = ++group_.lastRound_;
        }
        Round(const Round&) = delete;
        Round& operator=(const Round&) = delete;
        ~Round() {
            qor::MutexLock lock(group_.mutex_);
            --group_.rounds_;
            group_.EraseRemoved();
        }

        typename Entries::iterator First() const {
            qor::MutexLock lock(group_.mutex_);
            return Own(group_.entries_.begin());
        }
        typename Entries::iterator Next(typename Entries::iterator entry) const {
            qor::MutexLock lock(group_.mutex_);
            return Own(++entry);
        }
        typename Entries::iterator End() const {
            qor::MutexLock lock(group_.mutex_);
            return group_.entries_.end();
        }

    private:
        /// The first one from here on that is of this round.
        typename Entries::iterator Own(typename Entries::iterator entry) const
            QOR_REQUIRES(group_.mutex_) {
            while (entry != group_.entries_.end() &&
                   (entry->second.firstRound > number_ || entry->second.lastRound < number_)) {
                ++entry;
            }
            return entry;
        }

        ObserverGroup& group_;
        std::uint64_t number_ = 0;
    };

    void EraseRemoved() QOR_REQUIRES(mutex_) {
        if (rounds_ == 0) {
            std::erase_if(entries_, [](const auto& entry) { return entry.second.IsRemoved(); });
        }
    }

    mutable qor::Mutex mutex_;
    Entries entries_ QOR_GUARDED_BY(mutex_);
    std::size_t count_ QOR_GUARDED_BY(mutex_) = 0;   ///< of entries that are not removed
    std::size_t rounds_ QOR_GUARDED_BY(mutex_) = 0;  ///< under way
    std::uint64_t lastRound_ QOR_GUARDED_BY(mutex_) = 0;
    std::atomic<std::uint64_t>* const cookieCounter_;
};

}  // namespace zam_connector::proxy
