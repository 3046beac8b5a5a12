#include "server/slot_poller.h"

#include <sched.h>

#include <algorithm>
#include <limits>

#include "server/server_connection.h"
#include "shared/cpu_share.h"
#include "shared/pause.h"
#include "shared/preemption.h"
#include "shared/step.h"

namespace zam_platform {
namespace {

/// How often the rest of the loop is run between two looks, and how long at most: there may always
/// be more of it.
constexpr std::chrono::microseconds kLoopPeriod{5};
constexpr std::chrono::microseconds kLoopSlice{20};

/// What clients are believed of a call through the socket.
constexpr std::chrono::microseconds kLongestRoundTrip{200};

/// A connection keeps its memory against others for so long after a call.
constexpr std::chrono::milliseconds kHotFor{100};

/// How often a user's connections get memory while other users are there: a burst, and then one in
/// this time. Making it and letting go of it takes some 20 us.
constexpr int kMostGrants = 16;
constexpr std::chrono::milliseconds kGrantTime{100};

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
      leave_(cap, Nanoseconds(0), Clock::now()),
      unused_(loop, [this] { GiveUpUnused(); }),
      grants_(kMostGrants, kGrantTime),
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

SlotPoller::Place* SlotPoller::YieldingTo(uid_t user) noexcept {
    Place* oldest = nullptr;
    Place* oldestOfMost = nullptr;
    const auto now = Clock::now();
    for (Place& place : places_) {
        if (place.connection == nullptr) {
            return &place;
        }
        if (now - place.lastUse >= kHotFor && (!oldest || place.lastUse < oldest->lastUse)) {
            oldest = &place;
        }
        const auto ofUser =
            std::count_if(places_.begin(), places_.end(),
                          [&place](const Place& other) { return other.user == place.user; });
        if (place.user != user && static_cast<std::size_t>(ofUser) > kMaxSlots / 2 &&
            (!oldestOfMost || place.lastUse < oldestOfMost->lastUse)) {
            oldestOfMost = &place;
        }
    }
    return oldest != nullptr ? oldest : oldestOfMost;
}

bool SlotPoller::MayAdmit(uid_t user, bool hasOthers) noexcept {
    return YieldingTo(user) != nullptr && (!hasOthers || grants_.Take(user, Clock::now()));
}

bool SlotPoller::Admit(ServerConnection& connection, uid_t user, Nanoseconds roundTrip) {
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
    leave_.NoteRoundTrip(std::min<Nanoseconds>(roundTrip, kLongestRoundTrip));
    *place = {.connection = &connection,
              .user = user,
              .lastUse = Clock::now(),
              .since = {},
              .until = {},
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
    const bool isWorthIt =
        IsElsewhere(hints) && HasCpuForPolling(now) &&
        (!HasHotOtherThan(place->user, now) ||
         vainPolls_.Has(place->user, now, static_cast<int>(leave_.Cap() / UserPolling::kPiece)));
    const Nanoseconds time =
        place->policy.AfterAnswer(leave_, now, DecodeGap(hints.gap), isWorthIt, !byMemory);
    if (byMemory || time.count() > 0) {
        place->lastUse = now;  // calls by the socket alone keep no memory
    }
    place->since = now;
    place->until = now + time;
    SetPolled(*place, time.count() > 0);
}

bool SlotPoller::HasHotOtherThan(uid_t user, Clock::time_point now) const noexcept {
    return std::any_of(places_.begin(), places_.end(), [user, now](const Place& place) {
        return place.connection != nullptr && place.user != user && now - place.lastUse < kHotFor;
    });
}

void SlotPoller::EndInVain(Place& place, Clock::time_point now) noexcept {
    if (place.policy.EndPoll(false)) {
        const auto polled = std::chrono::ceil<std::chrono::microseconds>(now - place.since);
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

SlotPoller::Clock::time_point SlotPoller::RunLoop(Clock::time_point begin) {
    auto now = begin;
    while (now - begin < kLoopSlice && loop_.poll_one() != 0) {
        now = Clock::now();
    }
    return now;
}

void SlotPoller::Poll() {
    auto begin = Clock::now();
    auto last = begin;
    auto nextRound = begin + kLoopPeriod;
    while (polled_ != 0 && !loop_.stopped()) {
        const auto now = Clock::now();
        if (leave_.IsHole(now - last) && HasBeenPreempted() && leave_.NoticeHole(now, now - last)) {
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
        if (last >= nextRound) {
            if (const auto end = RunLoop(last); end != last) {
                begin += end - last;
                last = end;
            }
            nextRound = last + kLoopPeriod;
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
