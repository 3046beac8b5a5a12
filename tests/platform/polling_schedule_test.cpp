#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "common/polling_policy.h"

namespace zam_platform::testing::schedules {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// What calls cost. CPU is that of both sides together, without what the handler takes.
struct Machine {
    const char* name;
    microseconds socketRoundTrip;
    microseconds socketCpu;
};

constexpr Machine kMeasured{"measured", microseconds(73), microseconds(55)};
constexpr Machine kQuick{"quick", microseconds(20), microseconds(15)};
constexpr Machine kSlow{"slow", microseconds(200), microseconds(150)};

constexpr Nanoseconds kMemoryRoundTrip{500};
constexpr Nanoseconds kMemoryCpu = microseconds(1);

/// How long a neighbour keeps the CPU, and how long it lets another run that does not sleep.
constexpr Nanoseconds kSlice = milliseconds(3);

using Random = std::mt19937;
/// The time for the given call, counted from 0.
using Times = std::function<Nanoseconds(std::size_t call, Random& random)>;

struct Schedule {
    std::string name;
    Times think;
    Times handle;
    bool hasNeighbour = false;  ///< a third process wants the service's CPU all the time
    double shareOfMemory = 0;   ///< least share of calls that are to go through memory
};

struct Outcome {
    Nanoseconds cpu{0};
    std::vector<Nanoseconds> latencies;
    std::size_t byMemory = 0;

    /// The given part of the calls takes no longer.
    double Percentile(double part) {
        const auto nth = latencies.begin() +
                         static_cast<std::ptrdiff_t>(part * static_cast<double>(latencies.size()));
        std::nth_element(latencies.begin(), nth, latencies.end());
        return static_cast<double>(nth->count());
    }
};

Outcome BySocket(const Machine& machine, const Schedule& schedule, std::size_t calls) {
    Outcome outcome;
    Random random(1);
    for (std::size_t call = 0; call < calls; ++call) {
        schedule.think(call, random);
        const Nanoseconds handling = schedule.handle(call, random);
        outcome.cpu += machine.socketCpu + handling;
        outcome.latencies.push_back(machine.socketRoundTrip + handling);
    }
    return outcome;
}

/// One client and its service, each on a CPU of its own.
class Conversation {
public:
    Conversation(const Machine& machine, const Schedule& schedule)
        : machine_(machine), schedule_(schedule) {}

    Outcome Run(std::size_t calls) {
        Random random(1);
        for (std::size_t call = 0; call < calls; ++call) {
            now_ += schedule_.think(call, random);
            MakeCall(schedule_.handle(call, random));
        }
        LetPollEnd(TimePoint::max());
        return std::move(outcome_);
    }

private:
    void MakeCall(Nanoseconds handling) {
        LetPollEnd(now_);
        const TimePoint begin = now_;
        client_.Begin(begin);
        hasMemory_ = hasMemory_ || client_.IsHot();
        const bool byMemory =
            hasMemory_ && client_.IsHot() && pollBegin_ && clientLeave_.Allows(begin);
        if (byMemory) {
            ThroughMemory(handling);
        } else {
            ThroughSocket(handling);
        }
        client_.End(now_, byMemory);
        outcome_.latencies.push_back(now_ - begin);
        const Nanoseconds limit =
            service_.AfterAnswer(serviceLeave_, now_, DecodeGap(EncodeGap(client_.Gap())), true);
        if (limit.count() > 0 && hasMemory_) {
            pollBegin_ = now_;
            pollEnd_ = now_ + limit;
        }
    }

    void ThroughMemory(Nanoseconds handling) {
        const Nanoseconds polled = now_ - *pollBegin_;
        Nanoseconds answer = kMemoryRoundTrip + handling;
        outcome_.cpu += kMemoryCpu + handling;
        ++outcome_.byMemory;
        const TimePoint preempted = *pollBegin_ + (kSlice - serviceRan_);
        if (schedule_.hasNeighbour && preempted < now_) {
            // The service reads the request when it is back.
            answer += preempted + kSlice - now_;
            EndPreempted();
        } else {
            EndPoll(now_, polled, true);
        }
        const Nanoseconds limit = client_.SpinLimit(clientLeave_.Cap());
        const bool isSoon = answer <= limit;
        const Nanoseconds spun = std::min(answer, limit);
        outcome_.cpu += std::max(spun - kMemoryRoundTrip, Nanoseconds(0));
        if (!isSoon) {
            answer += machine_.socketRoundTrip / 2;
            outcome_.cpu += machine_.socketCpu / 2;
        }
        clientLeave_.EndPoll(now_ + spun, spun, isSoon);
        now_ += answer;
    }

    void ThroughSocket(Nanoseconds handling) {
        if (pollBegin_) {
            EndPoll(now_, now_ - *pollBegin_, false);
        }
        now_ += machine_.socketRoundTrip + handling;
        outcome_.cpu += machine_.socketCpu + handling;
        serviceRan_ = Nanoseconds(0);
    }

    /// Ends the poll under way if it ends by itself by that time.
    void LetPollEnd(TimePoint time) {
        if (!pollBegin_) {
            return;
        }
        const TimePoint preempted = *pollBegin_ + (kSlice - serviceRan_);
        if (schedule_.hasNeighbour && preempted < pollEnd_ && preempted + kSlice <= time) {
            EndPreempted();
            return;
        }
        if (pollEnd_ <= time && !(schedule_.hasNeighbour && preempted < pollEnd_)) {
            EndPoll(pollEnd_, pollEnd_ - *pollBegin_, false);
            serviceRan_ = Nanoseconds(0);
        }
    }

    void EndPreempted() {
        const TimePoint preempted = *pollBegin_ + (kSlice - serviceRan_);
        const TimePoint back = preempted + kSlice;
        ASSERT_TRUE(serviceLeave_.NoticeHole(back, kSlice));
        outcome_.cpu += preempted - *pollBegin_;
        serviceLeave_.EndPoll(back, back - *pollBegin_, false);
        service_.EndPoll(false);
        pollBegin_.reset();
        serviceRan_ = Nanoseconds(0);
    }

    void EndPoll(TimePoint end, Nanoseconds polled, bool hit) {
        outcome_.cpu += polled;
        serviceRan_ += polled;
        serviceLeave_.EndPoll(end, polled, hit);
        service_.EndPoll(hit);
        pollBegin_.reset();
    }

    const Machine& machine_;
    const Schedule& schedule_;
    TimePoint now_;
    PollingLeave clientLeave_{kGreatestCap, machine_.socketRoundTrip, now_};
    PollingLeave serviceLeave_{kGreatestCap, machine_.socketRoundTrip, now_};
    ClientPolling client_{clientLeave_.BreakEven()};
    ServicePolling service_;
    std::optional<TimePoint> pollBegin_;
    TimePoint pollEnd_;
    Nanoseconds serviceRan_{0};  ///< since it slept
    bool hasMemory_ = false;
    Outcome outcome_;
};

// -- Times to think and to handle.

Times Always(Nanoseconds time) {
    return [time](std::size_t, Random&) { return time; };
}

/// Evenly spread around the time, by a part of it on each side.
Times Jittered(Nanoseconds time, double part) {
    return [time, part](std::size_t, Random& random) {
        std::uniform_real_distribution<double> spread(1 - part, 1 + part);
        return Nanoseconds(
            static_cast<std::int64_t>(static_cast<double>(time.count()) * spread(random)));
    };
}

Times Exponential(Nanoseconds mean) {
    return [mean](std::size_t, Random& random) {
        std::exponential_distribution<double> spread(1.0 / static_cast<double>(mean.count()));
        return Nanoseconds(static_cast<std::int64_t>(spread(random)));
    };
}

Times Alternating(std::vector<Nanoseconds> times) {
    return [times](std::size_t call, Random&) { return times[call % times.size()]; };
}

/// `burst` calls a short time apart, then silence.
Times Bursts(std::size_t burst, Nanoseconds within, Nanoseconds silence) {
    return [=](std::size_t call, Random&) { return call % burst == 0 ? silence : within; };
}

/// Bursts of changing length.
Times RandomBursts(std::size_t mean, Nanoseconds within, Nanoseconds silence) {
    return [=](std::size_t, Random& random) { return random() % mean == 0 ? silence : within; };
}

/// One kind of times for so many calls, then the other, in turns.
Times InTurns(std::size_t calls, Times one, Times other) {
    return [=](std::size_t call, Random& random) {
        return call / calls % 2 == 0 ? one(call, random) : other(call, random);
    };
}

const Times kNoHandling = Always(Nanoseconds(0));

std::vector<Schedule> Schedules() {
    std::vector<Schedule> all;
    const auto add = [&all](std::string name, const Times& think, double share = 0) {
        all.push_back({.name = std::move(name),
                       .think = think,
                       .handle = kNoHandling,
                       .shareOfMemory = share});
    };
    for (const int think : {0, 5, 20, 35, 48, 49, 50, 51, 60, 100, 1000, 20000}) {
        const Times times = Always(microseconds(think));
        add(fmt::format("{} us", think), times, think <= 48 ? 0.95 : 0);
        for (const int handler : {5, 20, 100}) {
            all.push_back({.name = fmt::format("{} us, handler {} us", think, handler),
                           .think = times,
                           .handle = Always(microseconds(handler)),
                           .shareOfMemory = think + handler <= 45 ? 0.95 : 0});
        }
    }
    for (const double part : {0.02, 0.1, 0.5, 1.0}) {
        for (const int think : {5, 20, 35, 48, 60, 100, 1000}) {
            add(fmt::format("{} us +- {} %", think, 100 * part),
                Jittered(microseconds(think), part), think * (1 + part) <= 45 ? 0.95 : 0);
        }
    }
    for (const int mean : {5, 20, 35, 48, 60, 100, 1000}) {
        add(fmt::format("{} us at random", mean), Exponential(microseconds(mean)),
            mean <= 5 ? 0.9 : 0);
    }
    for (const int one : {0, 5, 20, 40}) {
        for (const int other : {45, 55, 60, 100, 1000}) {
            for (const std::size_t times : {1U, 4U, 9U}) {
                std::vector<Nanoseconds> turns(times, microseconds(one));
                turns.emplace_back(microseconds(other));
                add(fmt::format("{} times {} us, then {} us", times, one, other),
                    Alternating(turns));
            }
        }
    }
    for (const std::size_t burst : {2U, 4U, 8U, 12U, 32U}) {
        for (const int within : {0, 5, 20, 40}) {
            for (const int silence : {70, 300, 5000, 100'000}) {
                // Where silences are short the budget of time counts.
                const bool isWorthIt = burst >= 8 && within <= 20 && silence >= 5000;
                add(fmt::format("bursts of {} every {} us, {} us apart", burst, within, silence),
                    Bursts(burst, microseconds(within), microseconds(silence)),
                    isWorthIt ? 0.7 : 0);
                add(fmt::format("bursts of about {} every {} us, {} us apart", burst, within,
                                silence),
                    RandomBursts(burst, microseconds(within), microseconds(silence)));
            }
        }
    }
    for (const std::size_t calls : {7U, 20U, 50U, 300U}) {
        for (const int slow : {55, 100, 1000, 20'000}) {
            add(fmt::format("{} calls at once, {} every {} us, in turns", calls, calls, slow),
                InTurns(calls, Always(microseconds(2)), Always(microseconds(slow))));
            add(fmt::format("{} calls every 48 us, {} every {} us, in turns", calls, calls, slow),
                InTurns(calls, Jittered(microseconds(48), 0.03), Always(microseconds(slow))));
        }
    }
    for (const int slow : {60, 5000}) {
        for (const std::size_t part : {2U, 5U, 10U, 40U}) {
            all.push_back({.name = fmt::format("one of {} calls takes {} us", part, slow),
                           .think = Always(microseconds(10)),
                           .handle = Bursts(part, Nanoseconds(0), microseconds(slow))});
        }
    }
    return all;
}

/// Some of them beside a third process that wants the service's CPU.
std::vector<Schedule> AllSchedules() {
    constexpr std::size_t kEvery = 4;
    std::vector<Schedule> all = Schedules();
    const std::size_t alone = all.size();
    for (std::size_t i = 0; i < alone; i += kEvery) {
        Schedule beside = all[i];
        beside.name += ", beside a neighbour";
        beside.hasNeighbour = true;
        beside.shareOfMemory = 0;
        all.push_back(std::move(beside));
    }
    return all;
}

class PollingSchedules : public ::testing::TestWithParam<Machine> {};

TEST_P(PollingSchedules, NeverCostMoreThanATenthBeyondTheSocket) {
    const std::size_t calls = std::getenv("ZAM_FULL_SIZE") != nullptr ? 20'000 : 1'000;
    constexpr double kBound = 1.1;
    constexpr double kBoundOfSlowest = 1.25;
    for (const Schedule& schedule : AllSchedules()) {
        Outcome socket = BySocket(GetParam(), schedule, calls);
        Outcome channel = Conversation(GetParam(), schedule).Run(calls);
        const double cpu =
            static_cast<double>(channel.cpu.count()) / static_cast<double>(socket.cpu.count());
        const double p50 = channel.Percentile(0.5) / socket.Percentile(0.5);
        const double p99 = channel.Percentile(0.99) / socket.Percentile(0.99);
        EXPECT_LE(cpu, kBound) << schedule.name;
        EXPECT_LE(p50, kBound) << schedule.name;
        EXPECT_LE(p99, kBoundOfSlowest) << schedule.name;
        if (GetParam().name == kMeasured.name) {
            EXPECT_GE(static_cast<double>(channel.byMemory),
                      schedule.shareOfMemory * static_cast<double>(calls))
                << schedule.name;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(PollingPolicy, PollingSchedules,
                         ::testing::Values(kMeasured, kQuick, kSlow),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace zam_platform::testing::schedules
