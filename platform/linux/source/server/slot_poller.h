#pragma once

#include <sys/types.h>

#include <array>
#include <asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <memory>

#include "common/polling_policy.h"
#include "server/user_allowances.h"
#include "shared/shared_pages.h"
#include "zam_platform/frame.h"
#include "zam_platform/server/alarm.h"

namespace zam_platform {

class ServerConnection;

/// Most connections whose calls may go through memory at a time.
inline constexpr std::size_t kMaxSlots = 8;

/// Looks for requests in the memory that connections share with their clients, while
/// `ServicePolling` finds it worth it. On the loop thread.
class SlotPoller {
public:
    using Clock = std::chrono::steady_clock;

    /// `cap` bounds one wait for a request; 0: none goes through memory. Memory that has not been
    /// used for as long as `kept` is given up.
    SlotPoller(asio::io_context& loop, Nanoseconds cap, std::chrono::milliseconds kept);
    SlotPoller(const SlotPoller&) = delete;
    SlotPoller& operator=(const SlotPoller&) = delete;

    bool IsOn() const noexcept { return isOn_; }

    /// Whether one more connection of this user may be taken in now; some each second, since others
    /// would pay for the making of memory. Is asked before it is made.
    bool MayAdmit(uid_t user) noexcept;

    /// Takes one more connection in; another one may have to give its memory up. False when there
    /// is no room. Takes no memory.
    bool Admit(ServerConnection& connection, uid_t user);
    void Remove(const ServerConnection& connection) noexcept;

    /// Decides whether the connection's next request is looked for, and tells its client. Before
    /// an answer is sent.
    void BeforeAnswer(ServerConnection& connection, const CallHints& hints, bool byMemory);

    bool IsPolling() const noexcept { return polled_ != 0; }

    /// Whether a client that tells this of itself runs on another CPU than this thread.
    static bool IsElsewhere(const CallHints& hints) noexcept;

    /// Tells the clients that nobody looks any more, and does not look again.
    void Stop() noexcept;

    /// Looks until nothing is worth looking for any more; runs the loop now and then.
    void Poll();

    /// Where a frame is copied to from memory before it is looked at: one is handled at a time.
    unsigned char* Frame() noexcept { return frame_.data(); }

private:
    struct Place {
        ServerConnection* connection = nullptr;
        uid_t user = 0;
        Clock::time_point lastUse;
        Clock::time_point lastClose;  ///< call that came close behind the one before, either way
        Clock::time_point since;      ///< a poll's begin
        Clock::time_point until;
        Clock::time_point chargedFrom;  ///< the stretch that its user has paid for
        Clock::time_point chargedTo;
        ServicePolling policy;
        bool isPolled = false;
    };

    Place* PlaceOf(const ServerConnection& connection) noexcept;
    std::ptrdiff_t PlacesOf(uid_t user) const noexcept;

    /// The place that the next connection of this user gets; null: none.
    Place* YieldingTo(uid_t user) noexcept;
    bool HasHotOtherThan(uid_t user, Clock::time_point now) const noexcept;
    void EndInVain(Place& place, Clock::time_point now) noexcept;
    void SetPolled(Place& place, bool isPolled) noexcept;
    void GiveUpUnused();

    /// Runs what the loop has, for as long as `slice` at most; gives when that ended, `begin` when
    /// there was nothing.
    Clock::time_point RunLoop(Clock::time_point begin, Clock::duration slice);

    /// Serves the request of one connection if there is one.
    bool Look(Place& place);
    void StopAll();

    asio::io_context& loop_;
    const bool isOn_;
    const std::chrono::milliseconds kept_;
    PollingLeave leave_;
    std::array<Place, kMaxSlots> places_;
    std::size_t polled_ = 0;
    Alarm unused_;
    UserAllowances grants_;
    UserAllowances grantsOfLong_;
    UserAllowances vainPolls_;
    alignas(8) std::array<unsigned char, kRequestSlotBytes> frame_;
};

}  // namespace zam_platform
