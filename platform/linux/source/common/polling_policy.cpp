#include "common/polling_policy.h"

#include <algorithm>
#include <bit>

namespace zam_platform {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// -- The gap's code.

/// Below 16 units a code is the number of units, from there on one of 16 steps of its octave.
constexpr std::int64_t kGapUnitNs = 64;
constexpr unsigned kMantissaBits = 4;
constexpr std::uint64_t kMantissas = 1U << kMantissaBits;

// -- The budget of a process.

/// Part of the wall time that polls may take, in percent: what nobody notices in a machine's load.
constexpr int kBudgetPercent = 5;

/// The time in which so much is saved up.
constexpr Nanoseconds TimeToSave(Nanoseconds budget) noexcept {
    return budget * (100 / kBudgetPercent);
}

/// What is saved up at most: as many vain polls as end a series of bursts (20 of the longest), and
/// no more than a scheduler's tick or so.
constexpr Nanoseconds kGreatestBudget = milliseconds(1);

/// CPU that a call by socket costs both sides, as a part of its round trip, in percent: 55 of 73 us
/// on two cores. The rest is the time that a sleeping core takes to wake.
constexpr int kSocketCpuPercent = 75;

/// Part of the difference that a shorter round trip takes from the longest known: one that was too
/// long by far is out of the account after some twenty connections.
constexpr int kFading = 8;

static_assert(2 * UserPolling::kMostPieces * UserPolling::kPiece == kGreatestBudget);
static_assert(UserPolling::kPieceTime == 2 * TimeToSave(UserPolling::kPiece));

// -- Pre-emption.

/// Longer than what interrupts, the machine's host and a kernel thread's errand take, of which
/// there were some 200 of more than 30 us in a second of polling on a machine at rest; shorter than
/// any time slice.
constexpr Nanoseconds kLongestErrand = microseconds(200);

/// A few time slices: whoever needed the CPU for one of them may be done by then.
constexpr Nanoseconds kFirstPause = milliseconds(10);

/// A neighbour that stays costs one poll and one slice a second.
constexpr Nanoseconds kGreatestPause = seconds(1);

/// After the end of a pause. Polls that find nobody for as long as the longest pause show that the
/// neighbour has gone: one that is still there shows itself within a few slices of polling. It
/// counts from the pause's end since nothing is learned within a pause.
constexpr Nanoseconds kPauseMemory = seconds(1);

// -- The service.

/// Least poll: covers what a client does between two calls of a burst.
constexpr Nanoseconds kLeastPoll = microseconds(20);

/// How many usual gaps a poll lasts beyond that: gaps vary.
constexpr int kPolledGaps = 2;

/// Bounds of the credit, in calls by socket. Savings pay for at most 9 vain polls, so those of long
/// ago for no more; a debt is worked off in at most 160 calls.
constexpr int kGreatestCredit = 8;

/// What a call that follows closely pays in: this part of a call by socket. Half of the tenth that
/// the channel may cost more than the socket.
constexpr int kTrialPart = 20;

/// The weight of vain polls doubles up to this while there is no hit among them.
constexpr int kGreatestWeight = 8;

// -- The client.

/// So many close calls in a row make a connection hot: what they would have saved is more than what
/// making the memory costs.
constexpr int kHotScore = 16;

/// Samples are cut off here, four times what can be close: one silence must not hide the burst that
/// follows it.
constexpr Nanoseconds kLongestSample = 4 * kGreatestCap;

/// Part of a new sample in the usual value: one silence leaves the gap of a burst below the
/// break-even.
constexpr int kSmoothing = 8;

/// How fast the usual round trip is forgotten while calls go by socket: after some 40 calls one
/// that was too long by far is tried again.
constexpr int kForgetting = 32;

/// How many usual round trips a client looks for its answer.
constexpr int kSpunRoundTrips = 4;

/// Least of it: ten round trips without any work in between.
constexpr Nanoseconds kLeastSpin = microseconds(5);

// -- Asking for memory.

constexpr seconds kFirstWait{1};     ///< short enough for a peak of other clients to pass
constexpr seconds kLongestWait{30};  ///< a request costs the service as much as a call

/// As long as memory is kept that nobody uses: who lost it earlier was driven out by others.
constexpr seconds kLongLife{10};

Nanoseconds Cut(Nanoseconds sample) noexcept {
    return std::clamp(sample, Nanoseconds(0), kLongestSample);
}

}  // namespace

std::uint8_t EncodeGap(Nanoseconds gap) noexcept {
    const std::int64_t bounded = std::clamp(gap, Nanoseconds(0), kLongestGap).count();
    const auto units = static_cast<std::uint64_t>((bounded + kGapUnitNs / 2) / kGapUnitNs);
    if (units < kMantissas) {
        return static_cast<std::uint8_t>(units);
    }
    unsigned shift = static_cast<unsigned>(std::bit_width(units)) - kMantissaBits - 1;
    // From the nanoseconds, as rounding twice would be off by more.
    const auto step = static_cast<std::uint64_t>(kGapUnitNs) << shift;
    std::uint64_t mantissa = (static_cast<std::uint64_t>(bounded) + step / 2) / step;
    if (mantissa == 2 * kMantissas) {
        mantissa = kMantissas;
        ++shift;
    }
    return static_cast<std::uint8_t>((shift + 1) * kMantissas + (mantissa - kMantissas));
}

Nanoseconds DecodeGap(std::uint8_t code) noexcept {
    const unsigned exponent = code >> kMantissaBits;
    const std::uint64_t mantissa = code % kMantissas;
    const std::uint64_t units =
        exponent == 0 ? mantissa : (kMantissas + mantissa) << (exponent - 1);
    return Nanoseconds(static_cast<std::int64_t>(units) * kGapUnitNs);
}

PollingLeave::PollingLeave(Nanoseconds cap, Nanoseconds socketRoundTrip, TimePoint now) noexcept
    : PollingLeave(cap, socketRoundTrip, now, kGreatestBudget, kLongestErrand) {}

PollingLeave::PollingLeave(Nanoseconds cap, Nanoseconds socketRoundTrip, TimePoint now,
                           Nanoseconds greatestBudget, Nanoseconds longestHole) noexcept
    : wishedCap_(cap),
      greatestBudget_(greatestBudget),
      longestHole_(longestHole),
      socketRoundTrip_(Nanoseconds(0)),
      cap_(Nanoseconds(0)),
      isFullAt_(now),
      pause_(Nanoseconds(0)),
      pauseEnd_(now) {
    NoteRoundTrip(socketRoundTrip);
}

PollingLeave PollingLeave::Boundless(TimePoint now) noexcept {
    constexpr std::chrono::hours kDay(24);
    return {kGreatestCap, kGreatestCap, now, kDay, kDay};
}

void PollingLeave::NoteRoundTrip(Nanoseconds roundTrip) noexcept {
    socketRoundTrip_.Update([=](Nanoseconds known) {
        return roundTrip >= known ? roundTrip : known - (known - roundTrip) / kFading;
    });
    // Whatever another thread notes meanwhile, it makes of that as well.
    cap_.Update([this](Nanoseconds) {
        return std::clamp(wishedCap_, Nanoseconds(0),
                          std::min(socketRoundTrip_.Get(), kGreatestCap));
    });
}

bool PollingLeave::Allows(TimePoint now) const noexcept {
    const Nanoseconds cap = cap_.Get();
    return cap.count() > 0 && now >= pauseEnd_.Get() &&
           isFullAt_.Get() - now <= TimeToSave(greatestBudget_ - cap);
}

void PollingLeave::EndPoll(TimePoint now, Nanoseconds polled, bool hit) noexcept {
    const Nanoseconds cost = hit ? polled - std::min(polled, socketRoundTrip_.Get()) : polled;
    if (cost.count() <= 0) {
        return;
    }
    isFullAt_.Update([=, this](TimePoint fullAt) {
        // No more is owed than can be saved: most of a poll of that length was somebody else's
        // time.
        const TimePoint latest = now + 2 * TimeToSave(greatestBudget_);
        return std::min(std::max(fullAt, now) + TimeToSave(std::min(cost, 2 * greatestBudget_)),
                        std::max(fullAt, latest));
    });
}

bool PollingLeave::NoticeHole(TimePoint now, Nanoseconds hole) noexcept {
    if (hole <= longestHole_) {
        return false;
    }
    const Nanoseconds last = pause_.Get();
    const TimePoint lastEnd = pauseEnd_.Get();
    if (last.count() > 0 && now < lastEnd) {
        return true;  // another thread's poll met the same neighbour
    }
    const bool isForgotten = last.count() == 0 || now - lastEnd > kPauseMemory;
    const Nanoseconds pause = isForgotten ? kFirstPause : std::min(2 * last, kGreatestPause);
    pause_.Set(pause);
    pauseEnd_.Set(now + pause);
    return true;
}

Nanoseconds PollingLeave::BreakEven() const noexcept {
    return std::min(Cap(), SocketCpu());
}

Nanoseconds PollingLeave::SocketCpu() const noexcept {
    return socketRoundTrip_.Get() * kSocketCpuPercent / 100;
}

Nanoseconds ServicePolling::AfterAnswer(const PollingLeave& leave, TimePoint now, Nanoseconds gap,
                                        bool otherCpu, bool sleeps) noexcept {
    limit_ = Nanoseconds(0);
    unit_ = leave.SocketCpu();
    if (gap > leave.BreakEven()) {
        // What was saved in better times does not pay for polls when they come again; what is owed
        // stays.
        credit_ = std::min(credit_, std::max(credit_ - unit_, Nanoseconds(0)));
        return limit_;
    }
    Pay(unit_ / kTrialPart);
    if (otherCpu && credit_.count() >= 0 && leave.Allows(now)) {
        const Nanoseconds wakeUp = sleeps ? leave.WakeUp() : Nanoseconds(0);
        limit_ = std::min(leave.Cap(), wakeUp + kLeastPoll + kPolledGaps * gap);
        saving_ = unit_ - std::min(gap, unit_);
    }
    return limit_;
}

bool ServicePolling::EndPoll(bool hit) noexcept {
    if (limit_.count() == 0) {
        return false;
    }
    if (hit) {
        weight_ = 1;
        Pay(saving_);
    } else {
        Pay(-limit_ * weight_);
        weight_ = std::min(2 * weight_, kGreatestWeight);
    }
    limit_ = Nanoseconds(0);
    return true;
}

void ServicePolling::Pay(Nanoseconds amount) noexcept {
    credit_ = std::clamp(credit_ + amount, -kGreatestCredit * unit_, kGreatestCredit * unit_);
}

int ServicePolling::Credit() const noexcept {
    if (unit_.count() == 0) {
        return 0;
    }
    const std::int64_t whole = credit_ / unit_;
    const bool isRest = credit_.count() < 0 && (credit_ % unit_).count() != 0;
    return static_cast<int>(isRest ? whole - 1 : whole);
}

ClientPolling ClientPolling::AlwaysHot() noexcept {
    ClientPolling polling;
    polling.farPrice_ = 0;
    polling.score_ = kHotScore;
    polling.isHot_ = true;
    polling.socketRoundTrip_ = kGreatestCap;
    return polling;
}

void ClientPolling::Begin(TimePoint now) noexcept {
    begin_ = now;
    if (!hasEnded_) {
        return;
    }
    const Nanoseconds gap = Cut(now - end_);
    gap_ += (gap - gap_) / kSmoothing;
    Judge(gap + roundTrip_ <= breakEven_);
}

void ClientPolling::End(TimePoint now, bool throughMemory) noexcept {
    end_ = now;
    hasEnded_ = true;
    const Nanoseconds roundTrip = Cut(now - begin_);
    if (!throughMemory) {
        roundTrip_ -= roundTrip_ / kForgetting;
        socketRoundTrip_ += (roundTrip - socketRoundTrip_) / kSmoothing;
        return;
    }
    roundTrip_ =
        roundTrip_.count() == 0 ? roundTrip : roundTrip_ + (roundTrip - roundTrip_) / kSmoothing;
    if (roundTrip > breakEven_) {
        Judge(false);
    }
}

void ClientPolling::Judge(bool isClose) noexcept {
    score_ = isClose ? std::min(score_ + 1, kHotScore) : std::max(score_ - farPrice_, 0);
    if (score_ == kHotScore) {
        isHot_ = true;
    } else if (score_ == 0) {
        isHot_ = false;
    }
}

Nanoseconds ClientPolling::SpinLimit(Nanoseconds cap) const noexcept {
    if (roundTrip_.count() == 0) {
        return cap;  // this call finds out
    }
    return std::min(cap, std::max(kSpunRoundTrips * roundTrip_, kLeastSpin));
}

void MemoryRequestBackoff::Refused(TimePoint now) noexcept {
    const seconds last = wait_.Get();
    const seconds wait = last.count() == 0 ? kFirstWait : std::min(2 * last, kLongestWait);
    wait_.Set(wait);
    next_.Set(now + wait);
}

void MemoryRequestBackoff::Lost(TimePoint now) noexcept {
    if (now - granted_.Get() < kLongLife) {
        Refused(now);
        return;
    }
    wait_.Set(seconds(0));
}

}  // namespace zam_platform
