#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "notices/notice_queue.h"

namespace zam_service {

/// Why a wait ends without a notice.
enum class WaitEnd {
    Unregistered,  ///< the registration has ended while it waited
    Displaced,     ///< a younger wait has come for the same registration
    Unknown,       ///< the client has no such registration
    Invalid,       ///< no registration can have this id
    Full,          ///< the client has too many registrations
};

/// A client's call that waits for a notice. It is ended once, by either function; destroyed before
/// that, it ends with its connection.
class NoticeWaiter {
public:
    /// Told once what became of a notice: whether the client has got it.
    using OnDelivery = std::function<void(bool wasTaken)>;

    virtual ~NoticeWaiter() = default;

    /// Ends the wait with a notice. `onDelivery` may be told before this returns.
    virtual void Give(std::uint32_t value, OnDelivery onDelivery) = 0;

    virtual void End(WaitEnd reason) = 0;
};

/// One client's wish to be told: the notices that wait for it, and the call that waits for
/// notices. Owned by shared pointers. One thread at a time.
class Registration : public std::enable_shared_from_this<Registration> {
public:
    /// `rules` is not owned and must outlive this object.
    Registration(const NoticeRules& rules, std::uint32_t id) noexcept
        : rules_(rules), id_(id), queue_(rules) {}

    /// Queues a notice, or gives it to who waits. Without memory for it the notice is missed, and
    /// who waits is given up, so that its client comes again.
    void Tell(std::uint32_t value) noexcept;

    /// Takes a call that waits. Two at once help nobody: the older ends as displaced, so that a
    /// call whose connection is dead without the service knowing keeps nothing back.
    void Wait(std::unique_ptr<NoticeWaiter> waiter) noexcept;

    bool HasBeenWaitedFor() const noexcept { return hasBeenWaitedFor_; }

    /// Whether it has missed notices, which are to be told again.
    bool HasMissed() const noexcept { return hasMissed_; }
    void HasMissed(bool hasMissed) noexcept { hasMissed_ = hasMissed; }

    /// Ends the call that waits. Nothing is to be told afterwards.
    void End();

    /// Notices that were given and are not known to have come.
    std::size_t InFlight() const noexcept { return inFlight_; }

private:
    void Serve();
    void OnDelivery(const Notice& notice, bool wasTaken) noexcept;
    void Miss() noexcept;
    void LogWhenDropped(bool isKept);

    const NoticeRules& rules_;
    const std::uint32_t id_;
    NoticeQueue queue_;
    std::unique_ptr<NoticeWaiter> waiter_;
    std::size_t inFlight_ = 0;
    bool isDropping_ = false;  ///< since the queue was last empty
    bool hasBeenWaitedFor_ = false;
    bool hasMissed_ = false;
};

}  // namespace zam_service
