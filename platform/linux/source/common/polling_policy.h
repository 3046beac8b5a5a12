#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace zam_platform {

// When a side of the fast channel polls, and for how long. Values in, values out: no clock, no I/O.
// No class here may be used by two threads at once unless it says so.

using Nanoseconds = std::chrono::nanoseconds;
using TimePoint = std::chrono::steady_clock::time_point;

/// The gap between two calls as it rides in a frame: 4 bits of exponent, 4 of mantissa. Rounds to
/// the nearest, at most 3.2 % off from 1 us up; monotonic; saturates at `kLongestGap`.
std::uint8_t EncodeGap(Nanoseconds gap) noexcept;
Nanoseconds DecodeGap(std::uint8_t code) noexcept;

/// What 255 stands for: 32.5 ms. Tells the service not to poll.
inline constexpr Nanoseconds kLongestGap{(31LL << 14U) * 64};

/// A number that threads tell one another, with no order to anything else.
template <typename Value>
class Relaxed {
public:
    explicit Relaxed(Value value) noexcept : value_(value) {}
    Relaxed(const Relaxed& other) noexcept : value_(other.Get()) {}
    Relaxed& operator=(const Relaxed& other) noexcept {
        Set(other.Get());
        return *this;
    }

    Value Get() const noexcept { return value_.load(std::memory_order_relaxed); }
    void Set(Value value) noexcept { value_.store(value, std::memory_order_relaxed); }

    /// Replaces the value by `change` of it, unless that is the same.
    template <typename Change>
    void Update(Change&& change) noexcept {
        Value before = Get();
        for (Value after = change(before); after != before; after = change(before)) {
            if (value_.compare_exchange_weak(before, after, std::memory_order_relaxed)) {
                return;
            }
        }
    }

private:
    std::atomic<Value> value_;
    static_assert(std::atomic<Value>::is_always_lock_free);
};

/// One process's leave to poll: how much polling may cost it, and what pre-emption teaches it.
/// Thread-safe, without a lock, so that a child after `fork` goes on with a copy of its own.
class PollingLeave {
public:
    /// `cap` is the longest poll that is wished for, 0 for none at all; the round trip of a call by
    /// socket, measured on this machine, and 50 us bound it as well.
    PollingLeave(Nanoseconds cap, Nanoseconds socketRoundTrip, TimePoint now) noexcept;

    /// One that is always given, and for the longest polls: for who must not depend on time.
    static PollingLeave Boundless(TimePoint now) noexcept;

    /// Takes note of what a call by socket has taken. The longest holds, since it is the one
    /// between two CPUs; it fades with shorter ones, since it may have been the machine's bad
    /// moment.
    void NoteRoundTrip(Nanoseconds roundTrip) noexcept;

    /// Whether a poll as long as the cap may begin: its budget is there, and no pause is under way.
    bool Allows(TimePoint now) const noexcept;

    /// A poll has ended. Charged in full; a hit gives back at most what the socket call would have
    /// cost. A hit is a poll that ended because what it waited for came through memory. Who polls
    /// for several connections at once tells each stretch of time once.
    void EndPoll(TimePoint now, Nanoseconds polled, bool hit) noexcept;

    /// Two looks within one poll lie `hole` apart. True when somebody else needed the CPU: the poll
    /// is to end, and there are none for a while.
    bool NoticeHole(TimePoint now, Nanoseconds hole) noexcept;

    /// Whether a hole of this length is to be noticed, if the scheduler was behind it.
    bool IsHole(Nanoseconds hole) const noexcept { return hole > longestHole_; }

    /// The longest poll, 0 for none at all.
    Nanoseconds Cap() const noexcept { return cap_.Get(); }

    /// What both sides together may poll for one call: more costs more CPU than the socket.
    Nanoseconds BreakEven() const noexcept;

    /// How long a side that sleeps takes to wake.
    Nanoseconds WakeUp() const noexcept { return socketRoundTrip_.Get() / 2; }

    /// What a call by socket costs both sides in CPU.
    Nanoseconds SocketCpu() const noexcept;

private:
    /// `greatestBudget` is what is saved up at most.
    PollingLeave(Nanoseconds cap, Nanoseconds socketRoundTrip, TimePoint now,
                 Nanoseconds greatestBudget, Nanoseconds longestHole) noexcept;

    Nanoseconds wishedCap_;
    Nanoseconds greatestBudget_;
    Nanoseconds longestHole_;  ///< that is not somebody else's time
    Relaxed<Nanoseconds> socketRoundTrip_;
    Relaxed<Nanoseconds> cap_;
    Relaxed<TimePoint> isFullAt_;  ///< when the budget will be the greatest again
    Relaxed<Nanoseconds> pause_;   ///< the last one; 0 before the first
    Relaxed<TimePoint> pauseEnd_;
};

/// The service's view of one connection: whether and how long to poll for its next call.
///
/// The credit is an account of CPU in units of one call by socket, -8 to 8. A hit pays in what it
/// saved against the socket, a vain poll takes out what it cost, the more the more of them follow
/// one another; each call that follows closely pays in a little, so that a connection that lost its
/// credit is tried again. Polls are made while nothing is owed. So all that polling wastes is at
/// most what it saved before and a twentieth of what the calls would have cost by socket.
class ServicePolling {
public:
    /// A call was answered (or will be, later) whose client says that its calls are `gap` apart,
    /// end of one to begin of the next, and whether it runs on another CPU. One whose answer goes
    /// by socket has to wake first. Returns how long to poll; 0: not at all.
    Nanoseconds AfterAnswer(const PollingLeave& leave, TimePoint now, Nanoseconds gap,
                            bool otherCpu, bool sleeps = false) noexcept;

    /// The poll that `AfterAnswer` asked for has ended, for whatever reason; a hit as in
    /// `PollingLeave::EndPoll`. Without such a poll nothing happens, and false is returned.
    bool EndPoll(bool hit) noexcept;

    /// -8 to 8; below 0: something is owed.
    int Credit() const noexcept;

private:
    void Pay(Nanoseconds amount) noexcept;

    Nanoseconds unit_{0};    ///< CPU of a call by socket
    Nanoseconds credit_{0};  ///< within 8 units
    Nanoseconds limit_{0};   ///< of the poll under way; 0: none
    Nanoseconds saving_{0};  ///< if it hits
    int weight_ = 1;         ///< of the next vain poll
};

/// What polls in vain for the clients of one user may take of a service's budget while another
/// user's calls come close together: half of it, so that nobody's lies leave others none. Is
/// counted in pieces that come back with time.
struct UserPolling {
    static constexpr std::chrono::microseconds kPiece{1};
    static constexpr int kMostPieces = 500;
    static constexpr std::chrono::microseconds kPieceTime{40};
};

/// How long a connection's memory stays its own behind a call against others of its own user, and
/// against users who have no more of them, or one more; against poorer ones, not at all.
struct PlaceKeeping {
    static constexpr std::chrono::milliseconds kFromOwnUser{100};
    static constexpr std::chrono::seconds kFromAnyone{1};
};

/// How often a user's connections get memory: a burst, and then one in this time, since making it
/// takes some 20 us; and in the long run, since a client may keep what it was given.
struct MemoryGranting {
    static constexpr int kMostAtOnce = 32;
    static constexpr std::chrono::milliseconds kTime{100};
    static constexpr int kMostOfLong = 4096;
    static constexpr std::chrono::seconds kTimeOfLong{10};
};

/// How often the rest of a loop that polls is run, and how long at least: there may always be more
/// of it.
struct LoopSharing {
    static constexpr std::chrono::microseconds kPeriod{5};
    static constexpr std::chrono::microseconds kSlice{20};
};

/// The longest poll that any machine gains by.
inline constexpr Nanoseconds kGreatestCap = std::chrono::microseconds(50);

/// The client's view of one connection.
class ClientPolling {
public:
    /// `breakEven` is `PollingLeave::BreakEven` of this process.
    explicit ClientPolling(Nanoseconds breakEven = kGreatestCap) noexcept : breakEven_(breakEven) {}

    /// One that takes its calls for close whenever they come: for who must not depend on time.
    static ClientPolling AlwaysHot() noexcept;

    void SetBreakEven(Nanoseconds breakEven) noexcept { breakEven_ = breakEven; }

    /// A call begins. Takes note of the gap since the last one's end.
    void Begin(TimePoint now) noexcept;

    /// It has its answer. `throughMemory`: its request went that way.
    void End(TimePoint now, bool throughMemory) noexcept;

    /// Its calls come close together and are answered soon: worth asking the service for memory,
    /// and going through it.
    bool IsHot() const noexcept { return isHot_; }

    /// What to tell the service: the usual gap between calls while hot, else the longest.
    Nanoseconds Gap() const noexcept { return isHot_ ? gap_ : kLongestGap; }

    /// What its calls by socket take lately; 0 before the first.
    Nanoseconds SocketRoundTrip() const noexcept { return socketRoundTrip_; }

    /// How long to look for an answer in memory before blocking.
    Nanoseconds SpinLimit(Nanoseconds cap) const noexcept;

private:
    /// What a call that is not close takes from the score: it can't rise as long as four of five
    /// calls are close. With fewer of them, polls for calls at the break-even cost more than the
    /// socket.
    static constexpr int kFarPrice = 4;

    void Judge(bool isClose) noexcept;

    Nanoseconds breakEven_;
    TimePoint begin_;
    TimePoint end_;
    Nanoseconds gap_{0};        ///< smoothed; 0 at first
    Nanoseconds roundTrip_{0};  ///< through memory, smoothed; 0: not known
    Nanoseconds socketRoundTrip_{0};
    int farPrice_ = kFarPrice;
    int score_ = 0;
    bool hasEnded_ = false;
    bool isHot_ = false;
};

/// When to ask again for memory that was refused or taken away, one per connection, or that could
/// not be had, one per process. Thread-safe.
class MemoryRequestBackoff {
public:
    bool Allows(TimePoint now) const noexcept { return now >= next_.Get(); }
    void Refused(TimePoint now) noexcept;
    void Granted(TimePoint now) noexcept { granted_.Set(now); }
    /// The service has given up the memory. Counts as refused when it did so soon.
    void Lost(TimePoint now) noexcept;

private:
    Relaxed<std::chrono::seconds> wait_{std::chrono::seconds(0)};
    Relaxed<TimePoint> next_{TimePoint::min()};
    Relaxed<TimePoint> granted_{TimePoint()};
};

}  // namespace zam_platform
