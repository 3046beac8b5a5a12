#include "server/slot_poller.h"

#include <sched.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "server/server_connection.h"
#include "server/socket_round_trip.h"
#include "shared/cpu_share.h"
#include "shared/pause.h"
#include "shared/preemption.h"
#include "shared/step.h"

namespace zam_platform {
namespace {

std::uint16_t OwnCpu() noexcept {
    const int cpu = ::sched_getcpu();
    return cpu >= 0 && cpu < std::numeric_limits<std::uint16_t>::max()
               ? static_cast<std::uint16_t>(cpu + 1)
               : 0;
}

}  // namespace

SlotPoller::SlotPoller(asio::io_context& loop, Nanoseconds cap, std::chrono::milliseconds kept)
    : loop_(loop),
      isOn_(cap.count() != 0),
      kept_(kept),
      leave_(cap, isOn_ ? SocketRoundTrip() : Nanoseconds(0), Clock::now()),
      unused_(loop, [this] { GiveUpUnused(); }),
      grants_(MemoryGranting::kMostAtOnce, MemoryGranting::kTime),
      grantsOfLong_(MemoryGranting::kMostOfLong, MemoryGranting::kTimeOfLong),
      vainPolls_(UserPolling::kMostPieces, UserPolling::kPieceTime) {}

bool SlotPoller::IsElsewhere(const CallHints& hints) noexcept {
    return hints.cpu != 0 && hints.cpu != OwnCpu();
}

SlotPoller::Place* SlotPoller::PlaceOf(const ServerConnection& connection) noexcept {
    const auto found =
        std::find_if(places_.begin(), places_.end(),
                     [&connection](const Place& place) { return place.connection == &connection; });
    return found == places_.end() ? nullptr : &*found;
}

std::ptrdiff_t SlotPoller::PlacesOf(uid_t user) const noexcept {
    return std::count_if(places_.begin(), places_.end(), [user](const Place& place) {
        return place.connection != nullptr && place.user == user;
    });
}

SlotPoller::Place* SlotPoller::YieldingTo(uid_t user) noexcept {
    const auto now = Clock::now();
    const std::ptrdiff_t own = PlacesOf(user);
    Place* found = nullptr;
    for (Place& place : places_) {
        if (place.connection == nullptr) {
            return &place;
        }
        // Nobody gets a place from who would be the poorer for it, unless that rests for long.
        const auto idle = now - place.lastUse;
        const bool yields = idle >= PlaceKeeping::kFromAnyone ||
                            (idle >= PlaceKeeping::kFromOwnUser && place.user == user) ||
                            PlacesOf(place.user) > own + 1;
        if (yields && (found == nullptr || place.lastUse < found->lastUse)) {
            found = &place;
        }
    }
    return found;
}

bool SlotPoller::MayAdmit(uid_t user) noexcept {
    const auto now = Clock::now();
    return YieldingTo(user) != nullptr && grantsOfLong_.Has(user, now) && grants_.Take(user, now) &&
           grantsOfLong_.Take(user, now);
}

bool SlotPoller::Admit(ServerConnection& connection, uid_t user) {
    Place* const place = YieldingTo(user);
    if (place == nullptr) {
        return false;
    }
    if (place->connection != nullptr) {
        place->connection->GiveUpMemory();
        if (!connection.IsOpen()) {
            return false;  // a call that was served with that took note of its end
        }
    }
    const auto now = Clock::now();
    *place = {.connection = &connection,
              .user = user,
              .lastUse = now,
              .lastClose = now,
              .since = {},
              .until = {},
              .chargedFrom = {},
              .chargedTo = {},
              .policy = {},
              .isPolled = false};
    if (!unused_.IsSet()) {
        unused_.RingAfter(kept_);
    }
    return true;
}

void SlotPoller::Remove(const ServerConnection& connection) noexcept {
    if (Place* const place = PlaceOf(connection)) {
        if (place->isPolled) {
            EndInVain(*place, Clock::now());
            --polled_;
        }
        *place = {};
    }
}

void SlotPoller::GiveUpUnused() {
    auto next = Clock::time_point::max();
    for (Place& place : places_) {
        if (place.connection == nullptr) {
            continue;
        }
        const auto due = place.lastUse + kept_;
        if (due <= Clock::now()) {
            place.connection->GiveUpMemory();
        } else {
            next = std::min(next, due);
        }
    }
    if (next != Clock::time_point::max()) {
        unused_.RingAt(next);
    }
}

void SlotPoller::BeforeAnswer(ServerConnection& connection, const CallHints& hints, bool byMemory) {
    Place* const place = PlaceOf(connection);
    if (place == nullptr) {
        return;
    }
    Reach(Step::ServiceDecides);
    const auto now = Clock::now();
    if (place->isPolled) {
        EndInVain(*place, now);  // what it found has ended it before
    }
    const Nanoseconds gap = DecodeGap(hints.gap);
    if (gap < kLongestGap) {
        place->lastClose = now;
    }
    const bool isWorthIt =
        IsElsewhere(hints) && HasCpuForPolling(now) &&
        (!HasHotOtherThan(place->user, now) ||
         vainPolls_.Has(place->user, now, static_cast<int>(leave_.Cap() / UserPolling::kPiece)));
    const Nanoseconds time = place->policy.AfterAnswer(leave_, now, gap, isWorthIt, !byMemory);
    if (byMemory || time.count() > 0) {
        place->lastUse = now;  // calls by the socket alone keep no memory
    }
    place->since = now;
    place->until = now + time;
    SetPolled(*place, time.count() > 0);
}

bool SlotPoller::HasHotOtherThan(uid_t user, Clock::time_point now) const noexcept {
    return std::any_of(places_.begin(), places_.end(), [user, now](const Place& place) {
        return place.connection != nullptr && place.user != user &&
               now - place.lastClose < PlaceKeeping::kFromOwnUser;
    });
}

void SlotPoller::EndInVain(Place& place, Clock::time_point now) noexcept {
    if (!place.policy.EndPoll(false)) {
        return;
    }
    // One look is for all of a user's connections that are polled at the time (of what several have
    // paid for, the longest counts), and a handler that ran beyond the poll's end was no look.
    place.chargedFrom = place.since;
    place.chargedTo = std::min(now, place.until);
    Clock::duration paid{0};
    for (const Place& other : places_) {
        if (other.connection != nullptr && other.user == place.user && &other != &place) {
            paid = std::max(paid, std::min(place.chargedTo, other.chargedTo) -
                                      std::max(place.chargedFrom, other.chargedFrom));
        }
    }
    const auto owed = place.chargedTo - place.chargedFrom - paid;
    if (owed.count() > 0) {
        const auto polled = std::chrono::ceil<std::chrono::microseconds>(owed);
        vainPolls_.Charge(place.user, now, static_cast<int>(polled / UserPolling::kPiece));
    }
}

void SlotPoller::SetPolled(Place& place, bool isPolled) noexcept {
    if (place.isPolled != isPolled) {
        place.isPolled = isPolled;
        isPolled ? ++polled_ : --polled_;
        place.connection->TellPolling(isPolled);
    }
}

bool SlotPoller::Look(Place& place) {
    if (!place.connection->HasRequest()) {
        return false;
    }
    if (place.isPolled) {
        place.policy.EndPoll(true);
    }
    place.connection->ServeFromMemory();
    if (place.connection != nullptr && place.isPolled && place.connection->HasPendingCall()) {
        SetPolled(place, false);  // until its answer: there is no next request before
    }
    // Whoever says that it looks no more looks once more behind that.
    if (place.connection != nullptr && !place.isPolled && place.connection->HasRequest()) {
        place.connection->ServeFromMemory();
    }
    return true;
}

void SlotPoller::StopAll() {
    for (Place& place : places_) {
        if (place.isPolled) {
            SetPolled(place, false);
            Look(place);
        }
    }
}

SlotPoller::Clock::time_point SlotPoller::RunLoop(Clock::time_point begin, Clock::duration slice) {
    auto now = begin;
    while (now - begin < slice && loop_.poll_one() != 0) {
        now = Clock::now();
    }
    return now;
}

void SlotPoller::Poll() {
    auto begin = Clock::now();
    auto last = begin;
    auto lastLook = begin;
    auto lastRound = begin;
    while (polled_ != 0 && !loop_.stopped()) {
        const auto now = Clock::now();
        // Also while calls were served: where all polls hit, that is most of the time.
        const auto hole = now - std::exchange(lastLook, now);
        if (leave_.IsHole(hole) && HasBeenPreempted(hole) && leave_.NoticeHole(now, hole)) {
            StopAll();
        }
        bool hasServed = false;
        for (Place& place : places_) {
            if (!place.isPolled) {
                continue;
            }
            if (Look(place)) {
                hasServed = true;
            } else if (now >= place.until) {
                EndInVain(place, now);
                SetPolled(place, false);
                hasServed = Look(place) || hasServed;
            }
        }
        last = now;
        if (hasServed) {
            leave_.EndPoll(now, now - begin, true);
            begin = last = Clock::now();
        }
        if (const auto sinceRound = last - lastRound; sinceRound >= LoopSharing::kPeriod) {
            // Sockets get as much time as handlers have had, or calls of long ones would starve
            // them.
            const auto slice = std::max<Clock::duration>(LoopSharing::kSlice, sinceRound);
            if (const auto end = RunLoop(last, slice); end != last) {
                begin += end - last;
                last = end;
            }
            lastRound = last;
        } else if (!hasServed) {
            Pause();
        }
    }
    leave_.EndPoll(last, last - begin, false);
}

void SlotPoller::Stop() noexcept {
    for (Place& place : places_) {
        if (place.isPolled) {
            SetPolled(place, false);
        }
    }
}

}  // namespace zam_platform
