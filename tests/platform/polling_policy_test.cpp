#include "common/polling_policy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

namespace zam_platform::testing {
namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;

constexpr Nanoseconds kTick{1};
constexpr TimePoint kDawn{hours(1)};
constexpr Nanoseconds kSocketTrip = microseconds(73);
/// Of kSocketTrip.
constexpr Nanoseconds kSocketCpu{54'750};

// -- The gap's code.

TEST(GapCode, HasAValueForEachByteTheLargerTheGreater) {
    for (int code = 0; code <= 255; ++code) {
        const Nanoseconds gap = DecodeGap(static_cast<std::uint8_t>(code));
        EXPECT_EQ(EncodeGap(gap), code);
        if (code > 0) {
            EXPECT_LT(DecodeGap(static_cast<std::uint8_t>(code - 1)), gap) << code;
        }
    }
    EXPECT_EQ(DecodeGap(255), kLongestGap);
}

TEST(GapCode, IsOfTheseBytes) {
    struct Row {
        Nanoseconds gap;
        int code;
        Nanoseconds decoded;
    };
    const std::vector<Row> rows = {
        {Nanoseconds::min(), 0, Nanoseconds(0)},
        {Nanoseconds(-1), 0, Nanoseconds(0)},
        {Nanoseconds(0), 0, Nanoseconds(0)},
        {Nanoseconds(31), 0, Nanoseconds(0)},
        {Nanoseconds(32), 1, Nanoseconds(64)},
        {Nanoseconds(64), 1, Nanoseconds(64)},
        {Nanoseconds(960), 15, Nanoseconds(960)},
        {microseconds(1), 16, Nanoseconds(1024)},
        {Nanoseconds(1984), 31, Nanoseconds(1984)},
        {Nanoseconds(2015), 31, Nanoseconds(1984)},
        {Nanoseconds(2016), 32, Nanoseconds(2048)},
        {Nanoseconds(2111), 32, Nanoseconds(2048)},
        {Nanoseconds(2112), 33, Nanoseconds(2176)},
        {microseconds(20), 84, Nanoseconds(20'480)},
        {microseconds(48), 103, Nanoseconds(47'104)},
        {milliseconds(1), 175, Nanoseconds(1'015'808)},
        {kLongestGap - kTick, 255, kLongestGap},
        {kLongestGap, 255, kLongestGap},
        {kLongestGap + kTick, 255, kLongestGap},
        {Nanoseconds::max(), 255, kLongestGap},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(EncodeGap(row.gap), row.code) << row.gap.count();
        EXPECT_EQ(DecodeGap(EncodeGap(row.gap)), row.decoded) << row.gap.count();
    }
}

TEST(GapCode, RoundsToTheNearest) {
    int last = 0;
    for (Nanoseconds gap = microseconds(1); gap <= milliseconds(1); gap += Nanoseconds(37)) {
        const int code = EncodeGap(gap);
        ASSERT_GE(code, last) << gap.count();
        last = code;
        const Nanoseconds off = DecodeGap(EncodeGap(gap)) - gap;
        ASSERT_LE(static_cast<double>(std::abs(off.count())),
                  0.032 * static_cast<double>(gap.count()))
            << gap.count();
    }
}

// -- The leave of a process.

TEST(PollingLeave, IsBoundedByWhatIsWishedTheSocketAnd50Microseconds) {
    struct Row {
        Nanoseconds wished;
        Nanoseconds roundTrip;
        Nanoseconds cap;
        Nanoseconds breakEven;
    };
    const microseconds most(50);
    const std::vector<Row> rows = {
        {Nanoseconds(-1), kSocketTrip, Nanoseconds(0), Nanoseconds(0)},
        {Nanoseconds(0), kSocketTrip, Nanoseconds(0), Nanoseconds(0)},
        {Nanoseconds(1), kSocketTrip, Nanoseconds(1), Nanoseconds(1)},
        {most - kTick, kSocketTrip, most - kTick, most - kTick},
        {most, kSocketTrip, most, most},
        {most + kTick, kSocketTrip, most, most},
        {Nanoseconds::max(), kSocketTrip, most, most},
        {most, most + kTick, most, Nanoseconds(37'500)},
        {most, most, most, Nanoseconds(37'500)},
        {most, most - kTick, most - kTick, Nanoseconds(37'499)},
        {most, Nanoseconds(66'664), most, Nanoseconds(49'998)},
        {most, Nanoseconds(66'667), most, most},
        {most, Nanoseconds(66'670), most, most},
        {most, Nanoseconds(0), Nanoseconds(0), Nanoseconds(0)},
        {most, Nanoseconds(-1), Nanoseconds(0), Nanoseconds(0)},
    };
    for (const Row& row : rows) {
        const PollingLeave leave(row.wished, row.roundTrip, kDawn);
        EXPECT_EQ(leave.Cap(), row.cap) << row.wished.count() << ' ' << row.roundTrip.count();
        EXPECT_EQ(leave.BreakEven(), row.breakEven)
            << row.wished.count() << ' ' << row.roundTrip.count();
        EXPECT_EQ(leave.Allows(kDawn), row.cap.count() > 0);
    }
    EXPECT_EQ(PollingLeave(most, kSocketTrip, kDawn).SocketCpu(), kSocketCpu);
}

class Leave : public ::testing::Test {
protected:
    /// How many vain polls of the greatest length are left, up to 1000.
    int VainPolls(TimePoint now) const {
        PollingLeave copy = leave_;
        int polls = 0;
        while (polls < 1000 && copy.Allows(now)) {
            copy.EndPoll(now, kGreatestCap, false);
            ++polls;
        }
        return polls;
    }

    /// Uses up what there is.
    void Spend(TimePoint now) {
        while (leave_.Allows(now)) {
            leave_.EndPoll(now, kGreatestCap, false);
        }
    }

    PollingLeave leave_{kGreatestCap, kSocketTrip, kDawn};
};

TEST_F(Leave, IsForAMillisecondOfVainPollsAtFirstAndAfterAnyTime) {
    EXPECT_EQ(VainPolls(kDawn), 20);
    EXPECT_EQ(VainPolls(kDawn + hours(1'000'000)), 20);
    Spend(kDawn);
    EXPECT_EQ(VainPolls(kDawn + milliseconds(20) - kTick), 19);
    EXPECT_EQ(VainPolls(kDawn + milliseconds(20)), 20);
    EXPECT_EQ(VainPolls(kDawn + milliseconds(20) + kTick), 20);
    EXPECT_EQ(VainPolls(kDawn + hours(1'000'000)), 20);
}

TEST_F(Leave, ComesBackAtATwentiethOfTheTime) {
    Spend(kDawn);
    EXPECT_FALSE(leave_.Allows(kDawn));
    EXPECT_FALSE(leave_.Allows(kDawn - seconds(1))) << "time that runs backwards gives nothing";
    EXPECT_FALSE(leave_.Allows(kDawn + milliseconds(1) - kTick));
    EXPECT_TRUE(leave_.Allows(kDawn + milliseconds(1)));
    EXPECT_TRUE(leave_.Allows(kDawn + milliseconds(1) + kTick));
}

TEST_F(Leave, IsNotGivenTwiceForTheSameTime) {
    Spend(kDawn);
    leave_.EndPoll(kDawn - seconds(1), Nanoseconds(0), true);
    EXPECT_FALSE(leave_.Allows(kDawn));
    leave_ = PollingLeave(kGreatestCap, kSocketTrip, kDawn);
    leave_.EndPoll(kDawn - seconds(1), Nanoseconds(0), true);
    EXPECT_EQ(VainPolls(kDawn), 20) << "nor is any taken";
}

TEST_F(Leave, IsOneForAllThreads) {
    constexpr int kPollers = 4;
    std::atomic<int> polls{0};
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kPollers; ++thread) {
            threads.emplace_back([&] {
                while (leave_.Allows(kDawn)) {
                    leave_.EndPoll(kDawn, kGreatestCap, false);
                    ++polls;
                }
            });
        }
    }
    EXPECT_GE(polls, 20);
    EXPECT_LT(polls, 20 + kPollers) << "none but those that had begun";
    const TimePoint next = kDawn + milliseconds(polls - 19);
    EXPECT_FALSE(leave_.Allows(next - kTick)) << "no poll is forgotten";
    EXPECT_TRUE(leave_.Allows(next));
}

TEST_F(Leave, IsForATwentiethOfTheTimeInTheLongRun) {
    Nanoseconds polled{0};
    TimePoint now = kDawn;
    while (now < kDawn + seconds(10)) {
        if (leave_.Allows(now)) {
            now += kGreatestCap;
            polled += kGreatestCap;
            leave_.EndPoll(now, kGreatestCap, false);
        } else {
            now += microseconds(100);
        }
    }
    EXPECT_LE(polled, milliseconds(502));
    EXPECT_GE(polled, milliseconds(490));
}

TEST_F(Leave, IsNotUsedUpByPollsThatHit) {
    for (int poll = 0; poll < 1000; ++poll) {
        leave_.EndPoll(kDawn, kGreatestCap, true);
        leave_.EndPoll(kDawn, kSocketTrip, true);
        leave_.EndPoll(kDawn, Nanoseconds(0), true);
    }
    EXPECT_EQ(VainPolls(kDawn), 20);
    Spend(kDawn);
    leave_.EndPoll(kDawn, microseconds(1), true);
    EXPECT_FALSE(leave_.Allows(kDawn)) << "a hit gives back no more than its own poll took";
}

TEST_F(Leave, PaysForWhatAHitTookBeyondASocketCall) {
    for (int poll = 0; poll < 19; ++poll) {
        leave_.EndPoll(kDawn, kSocketTrip + kGreatestCap, true);
    }
    EXPECT_EQ(VainPolls(kDawn), 1);
    leave_.EndPoll(kDawn, kSocketTrip + kTick, true);
    EXPECT_EQ(VainPolls(kDawn), 0);
}

TEST_F(Leave, OwesNoMoreThanAMillisecond) {
    leave_.EndPoll(kDawn, seconds(5), false);
    EXPECT_FALSE(leave_.Allows(kDawn + milliseconds(21) - kTick));
    EXPECT_TRUE(leave_.Allows(kDawn + milliseconds(21)));
}

TEST_F(Leave, TakesAHoleOfMoreThan200MicrosecondsForANeighbour) {
    EXPECT_FALSE(leave_.NoticeHole(kDawn, Nanoseconds(0)));
    EXPECT_FALSE(leave_.NoticeHole(kDawn, microseconds(200) - kTick));
    EXPECT_FALSE(leave_.NoticeHole(kDawn, microseconds(200)));
    EXPECT_FALSE(leave_.IsHole(microseconds(200)));
    EXPECT_TRUE(leave_.IsHole(microseconds(200) + kTick));
    EXPECT_TRUE(leave_.Allows(kDawn));
    EXPECT_TRUE(leave_.NoticeHole(kDawn, microseconds(200) + kTick));
    EXPECT_FALSE(leave_.Allows(kDawn));
}

TEST_F(Leave, PausesLongerForEachHoleThatFollows) {
    TimePoint now = kDawn;
    for (const int pauseMs : {10, 20, 40, 80, 160, 320, 640, 1000, 1000}) {
        ASSERT_TRUE(leave_.NoticeHole(now, milliseconds(3)));
        EXPECT_FALSE(leave_.Allows(now));
        now += milliseconds(pauseMs);
        EXPECT_FALSE(leave_.Allows(now - kTick)) << pauseMs;
        EXPECT_TRUE(leave_.Allows(now)) << pauseMs;
    }
}

TEST_F(Leave, CountsANeighbourOnceThatSeveralPollsMeet) {
    ASSERT_TRUE(leave_.NoticeHole(kDawn, milliseconds(3)));
    EXPECT_TRUE(leave_.NoticeHole(kDawn + kTick, milliseconds(3))) << "that poll is to end too";
    EXPECT_TRUE(leave_.NoticeHole(kDawn + milliseconds(10) - kTick, milliseconds(3)));
    EXPECT_TRUE(leave_.Allows(kDawn + milliseconds(10)));
}

TEST_F(Leave, ForgetsANeighbourThatDidNotComeForASecondBehindThePause) {
    const auto pauseOfNext = [this](Nanoseconds behindPause) {
        PollingLeave copy = leave_;
        const TimePoint hole = kDawn + milliseconds(10) + behindPause;
        EXPECT_TRUE(copy.NoticeHole(hole, milliseconds(3)));
        int pauseMs = 0;
        while (pauseMs < 100 && !copy.Allows(hole + milliseconds(pauseMs))) {
            ++pauseMs;
        }
        return pauseMs;
    };
    ASSERT_TRUE(leave_.NoticeHole(kDawn, milliseconds(3)));
    EXPECT_EQ(pauseOfNext(Nanoseconds(0)), 20);
    EXPECT_EQ(pauseOfNext(seconds(1) - kTick), 20);
    EXPECT_EQ(pauseOfNext(seconds(1)), 20);
    EXPECT_EQ(pauseOfNext(seconds(1) + kTick), 10);
}

// -- The service's view of a connection.

class ServiceSide : public ::testing::Test {
protected:
    Nanoseconds Answer(Nanoseconds gap) { return service_.AfterAnswer(leave_, kDawn, gap, true); }

    /// A call with this gap; polls for the next one, with this outcome, if it is let to.
    bool Call(Nanoseconds gap, bool hit) {
        const bool polls = Answer(gap).count() > 0;
        if (polls) {
            service_.EndPoll(hit);
        }
        return polls;
    }

    /// How many calls it takes until a poll begins, which is left under way.
    int CallsUntilPoll(Nanoseconds gap) {
        int calls = 1;
        while (calls < 1000 && Answer(gap).count() == 0) {
            ++calls;
        }
        return calls;
    }

    /// Calls that come at once, all of which hit.
    void Save(int calls) {
        for (int call = 0; call < calls; ++call) {
            ASSERT_TRUE(Call(Nanoseconds(0), true));
        }
    }

    PollingLeave leave_{kGreatestCap, kSocketTrip, kDawn};
    ServicePolling service_;
};

TEST_F(ServiceSide, PollsForTheGapTwiceAndALittleUpToTheCap) {
    struct Row {
        Nanoseconds gap;
        Nanoseconds poll;
    };
    const std::vector<Row> rows = {
        {Nanoseconds(0), microseconds(20)},
        {kTick, microseconds(20) + 2 * kTick},
        {microseconds(5), microseconds(30)},
        {microseconds(15) - kTick, microseconds(50) - 2 * kTick},
        {microseconds(15), microseconds(50)},
        {microseconds(15) + kTick, microseconds(50)},
        {microseconds(48), microseconds(50)},
        {microseconds(50) - kTick, microseconds(50)},
        {microseconds(50), microseconds(50)},
        {microseconds(50) + kTick, Nanoseconds(0)},
        {kLongestGap, Nanoseconds(0)},
    };
    for (const Row& row : rows) {
        ServicePolling service;
        EXPECT_EQ(service.AfterAnswer(leave_, kDawn, row.gap, true), row.poll) << row.gap.count();
    }
}

TEST_F(ServiceSide, PollsForNoGapThatCostsMoreThanAQuickSocket) {
    const PollingLeave quick(kGreatestCap, microseconds(20), kDawn);
    EXPECT_EQ(service_.AfterAnswer(quick, kDawn, microseconds(15), true), microseconds(20));
    EXPECT_EQ(service_.AfterAnswer(quick, kDawn, microseconds(15) + kTick, true).count(), 0);
}

TEST_F(ServiceSide, PollsForNobodyOnItsOwnCpu) {
    EXPECT_EQ(service_.AfterAnswer(leave_, kDawn, Nanoseconds(0), false).count(), 0);
    service_.EndPoll(false);
    EXPECT_EQ(service_.Credit(), 0) << "there was no poll";
}

TEST_F(ServiceSide, PollsOnlyWithItsProcessesLeave) {
    const PollingLeave never(Nanoseconds(0), kSocketTrip, kDawn);
    EXPECT_EQ(service_.AfterAnswer(never, kDawn, Nanoseconds(0), true).count(), 0);
    PollingLeave paused = leave_;
    paused.NoticeHole(kDawn, milliseconds(1));
    EXPECT_EQ(service_.AfterAnswer(paused, kDawn, Nanoseconds(0), true).count(), 0);
    PollingLeave spent = leave_;
    spent.EndPoll(kDawn, milliseconds(1), false);
    EXPECT_EQ(service_.AfterAnswer(spent, kDawn, Nanoseconds(0), true).count(), 0);
    EXPECT_GT(service_.AfterAnswer(leave_, kDawn, Nanoseconds(0), true).count(), 0);
}

TEST_F(ServiceSide, GetsCreditForWhatAHitSaves) {
    EXPECT_EQ(service_.Credit(), 0);
    Save(1);
    EXPECT_EQ(service_.Credit(), 1);
    Save(6);
    EXPECT_EQ(service_.Credit(), 7);
    Save(1);
    EXPECT_EQ(service_.Credit(), 8);
    Save(100);
    EXPECT_EQ(service_.Credit(), 8);
}

TEST_F(ServiceSide, GetsLittleCreditNearTheBreakEven) {
    // 4.75 us saved, and a twentieth of 54.75 us: 7.3 of these make one call.
    for (int call = 0; call < 7; ++call) {
        ASSERT_TRUE(Call(microseconds(50), true));
    }
    EXPECT_EQ(service_.Credit(), 0);
    ASSERT_TRUE(Call(microseconds(50), true));
    EXPECT_EQ(service_.Credit(), 1);
}

TEST_F(ServiceSide, PaysForAVainPollBeforeTheNext) {
    // The poll of 20 us less the trial's 2737 ns takes another 7 of these.
    ASSERT_TRUE(Call(Nanoseconds(0), false));
    EXPECT_EQ(service_.Credit(), -1);
    EXPECT_EQ(CallsUntilPoll(Nanoseconds(0)), 7);
    EXPECT_EQ(service_.Credit(), 0);
}

TEST_F(ServiceSide, PaysForVainPollsOfWhatItSaved) {
    Save(100);
    int polls = 0;
    int calls = 0;
    while (service_.Credit() >= 0 && calls < 100) {
        ++calls;
        polls += Call(microseconds(5), false) ? 1 : 0;
    }
    EXPECT_EQ(polls, calls);
    EXPECT_EQ(polls, 4) << "30, 60, 120 and 240 us, of 438 us";
}

TEST_F(ServiceSide, TriesTheLessOftenTheMoreVainPollsFollowOneAnother) {
    std::vector<int> waits;
    for (int trial = 0; trial < 7; ++trial) {
        waits.push_back(CallsUntilPoll(microseconds(15)));
        service_.EndPoll(false);
    }
    EXPECT_THAT(waits, ElementsAre(1, 18, 36, 73, 147, 146, 146));
}

TEST_F(ServiceSide, TriesAsOftenAsAtFirstBehindAHit) {
    for (int trial = 0; trial < 5; ++trial) {
        CallsUntilPoll(microseconds(15));
        service_.EndPoll(false);
    }
    CallsUntilPoll(microseconds(15));
    service_.EndPoll(true);
    ASSERT_TRUE(Call(microseconds(15), false));
    EXPECT_EQ(CallsUntilPoll(microseconds(15)), 2) << "the hit paid for most of the poll";
}

TEST_F(ServiceSide, OwesNoMoreThan8Calls) {
    const PollingLeave quick(kGreatestCap, microseconds(50), kDawn);
    const auto callsUntilPoll = [&] {
        int calls = 1;
        while (calls < 1000 &&
               service_.AfterAnswer(quick, kDawn, microseconds(15), true).count() == 0) {
            ++calls;
        }
        return calls;
    };
    for (int trial = 0; trial < 5; ++trial) {
        callsUntilPoll();
        service_.EndPoll(false);
    }
    EXPECT_EQ(service_.Credit(), -8);
    EXPECT_EQ(callsUntilPoll(), 160);
}

TEST_F(ServiceSide, LosesWhatItSavedWhileGapsAreLong) {
    Save(100);
    for (const int credit : {7, 6, 5, 4, 3, 2, 1, 0, 0, 0}) {
        EXPECT_EQ(Answer(microseconds(50) + kTick).count(), 0);
        EXPECT_EQ(service_.Credit(), credit);
    }
}

TEST_F(ServiceSide, OwesTheSameAfterLongGaps) {
    ASSERT_TRUE(Call(Nanoseconds(0), false));
    for (int call = 0; call < 100; ++call) {
        EXPECT_EQ(Answer(kLongestGap).count(), 0);
    }
    EXPECT_EQ(service_.Credit(), -1);
    EXPECT_EQ(CallsUntilPoll(Nanoseconds(0)), 7);
}

TEST_F(ServiceSide, CountsAPollOnce) {
    service_.EndPoll(false);
    EXPECT_EQ(service_.Credit(), 0);
    ASSERT_GT(Answer(Nanoseconds(0)).count(), 0);
    service_.EndPoll(true);
    service_.EndPoll(true);
    EXPECT_EQ(service_.Credit(), 1);
    service_.EndPoll(false);
    EXPECT_EQ(service_.Credit(), 1);
}

TEST_F(ServiceSide, WastesNoMoreThanItSavedAndATwentiethOfTheCalls) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        service_ = ServicePolling();
        Nanoseconds wasted{0};
        Nanoseconds allowed = kGreatestCap;  // the poll that finds out
        std::mt19937::result_type hitsOf8 = 0;
        for (int call = 0; call < 2000; ++call) {
            if (call % 100 == 0) {
                hitsOf8 = random() % 9;
            }
            const Nanoseconds gap(static_cast<std::int64_t>(random() % 60'000));
            allowed += kSocketCpu / 20;
            const Nanoseconds limit = Answer(gap);
            if (limit.count() == 0) {
                continue;
            }
            const bool hit = random() % 8 < hitsOf8;
            service_.EndPoll(hit);
            (hit ? allowed : wasted) += hit ? kSocketCpu - gap : limit;
            ASSERT_LE(wasted, allowed) << seed << ' ' << call;
        }
        EXPECT_GT(wasted, Nanoseconds(0)) << seed;
    }
}

// -- The client's view.

class ClientSide : public ::testing::Test {
protected:
    /// A call so long after the last one's end.
    void Call(Nanoseconds gap, Nanoseconds roundTrip = kSocketTrip, bool throughMemory = false) {
        now_ += gap;
        client_.Begin(now_);
        now_ += roundTrip;
        client_.End(now_, throughMemory);
    }

    void Calls(int count, Nanoseconds gap) {
        for (int call = 0; call < count; ++call) {
            Call(gap);
        }
    }

    void BecomeHot(Nanoseconds gap = microseconds(10)) {
        Calls(100, gap);
        ASSERT_TRUE(client_.IsHot());
    }

    TimePoint now_ = kDawn;
    ClientPolling client_{microseconds(50)};
};

TEST_F(ClientSide, IsHotAfter16CloseCallsInARow) {
    EXPECT_FALSE(client_.IsHot());
    Call(microseconds(1));  // nothing came before it
    Calls(15, microseconds(1));
    EXPECT_FALSE(client_.IsHot());
    client_.Begin(now_ + microseconds(1));
    EXPECT_TRUE(client_.IsHot());
}

TEST_F(ClientSide, HoldsTheBreakEvenToBeClose) {
    struct Row {
        Nanoseconds gap;
        bool isHot;
    };
    for (const Row& row : {Row{microseconds(50) - kTick, true}, Row{microseconds(50), true},
                           Row{microseconds(50) + kTick, false}}) {
        client_ = ClientPolling(microseconds(50));
        Calls(100, row.gap);
        EXPECT_EQ(client_.IsHot(), row.isHot) << row.gap.count();
    }
}

TEST_F(ClientSide, CountsTheTimeThatItSpinsForAnAnswer) {
    struct Row {
        Nanoseconds gap;
        bool isHot;
    };
    for (const Row& row : {Row{microseconds(30) - kTick, true}, Row{microseconds(30), true},
                           Row{microseconds(30) + kTick, false}}) {
        client_ = ClientPolling(microseconds(50));
        for (int call = 0; call < 100; ++call) {
            Call(row.gap, microseconds(20), true);
        }
        EXPECT_EQ(client_.IsHot(), row.isHot) << row.gap.count();
    }
}

TEST_F(ClientSide, IsColdAfterFourFarCallsInARow) {
    BecomeHot();
    Calls(3, milliseconds(1));
    EXPECT_TRUE(client_.IsHot());
    Call(milliseconds(1));
    EXPECT_FALSE(client_.IsHot());
    Call(microseconds(1));
    EXPECT_FALSE(client_.IsHot()) << "it begins anew";
}

TEST_F(ClientSide, StaysHotWhenFourOfFiveCallsAreClose) {
    BecomeHot();
    for (int round = 0; round < 100; ++round) {
        Calls(4, microseconds(1));
        Call(milliseconds(1));
        ASSERT_TRUE(client_.IsHot());
    }
    for (int round = 0; round < 100; ++round) {
        Calls(3, microseconds(1));
        Call(milliseconds(1));
    }
    EXPECT_FALSE(client_.IsHot());
}

TEST_F(ClientSide, TakesAnAnswerBeyondTheBreakEvenForFar) {
    for (const auto& [roundTrip, staysHot] :
         {std::pair(microseconds(50) - kTick, true), std::pair(Nanoseconds(microseconds(50)), true),
          std::pair(microseconds(50) + kTick, false)}) {
        client_ = ClientPolling(microseconds(50));
        BecomeHot(Nanoseconds(0));
        Calls(3, milliseconds(1));
        Call(Nanoseconds(0), roundTrip, true);
        EXPECT_TRUE(client_.IsHot());
        client_.Begin(now_);
        EXPECT_EQ(client_.IsHot(), staysHot) << roundTrip.count();
        Call(milliseconds(1));
        EXPECT_EQ(client_.IsHot(), staysHot) << roundTrip.count();
    }
}

TEST_F(ClientSide, TakesEachSlowAnswerForFarWhateverIsUsual) {
    BecomeHot();
    Calls(3, milliseconds(1));
    Call(Nanoseconds(0), microseconds(1), true);
    Call(Nanoseconds(0), microseconds(100), true);
    EXPECT_TRUE(client_.IsHot());
    Call(milliseconds(1));
    EXPECT_FALSE(client_.IsHot());
}

TEST_F(ClientSide, TellsItsUsualGapWhileHot) {
    Calls(10, microseconds(10));
    EXPECT_EQ(client_.Gap(), kLongestGap) << "nobody is to poll for it yet";
    BecomeHot();
    EXPECT_NEAR(static_cast<double>(client_.Gap().count()), 10'000, 10);
    Calls(4, milliseconds(1));
    EXPECT_EQ(client_.Gap(), kLongestGap);
}

TEST_F(ClientSide, SmoothsTheGap) {
    BecomeHot(microseconds(0));
    ASSERT_EQ(client_.Gap().count(), 0);
    Call(microseconds(8));
    EXPECT_EQ(client_.Gap(), microseconds(1));
    Call(microseconds(17));
    EXPECT_EQ(client_.Gap(), microseconds(3));
    Call(microseconds(3));
    EXPECT_EQ(client_.Gap(), microseconds(3));
}

TEST_F(ClientSide, TakesASilenceForNoMoreThan200Microseconds) {
    for (const auto& [silence, gap] :
         {std::pair(Nanoseconds(199'992), 24'999), std::pair(Nanoseconds(200'000), 25'000),
          std::pair(Nanoseconds(200'008), 25'000), std::pair(Nanoseconds(hours(1)), 25'000)}) {
        client_ = ClientPolling(microseconds(50));
        BecomeHot(Nanoseconds(0));
        Call(silence);
        EXPECT_EQ(client_.Gap().count(), gap) << silence.count();
    }
}

TEST_F(ClientSide, TakesTimeThatRunsBackwardsForNone) {
    BecomeHot(Nanoseconds(0));
    Call(-seconds(1), -seconds(1), true);
    EXPECT_EQ(client_.Gap().count(), 0);
    EXPECT_EQ(client_.SpinLimit(kGreatestCap), kGreatestCap);
}

TEST_F(ClientSide, SpinsForFourUsualRoundTrips) {
    struct Row {
        Nanoseconds roundTrip;
        Nanoseconds cap;
        Nanoseconds limit;
    };
    const microseconds cap(50);
    const std::vector<Row> rows = {
        {Nanoseconds(500), cap, microseconds(5)},
        {Nanoseconds(1249), cap, microseconds(5)},
        {Nanoseconds(1250), cap, microseconds(5)},
        {Nanoseconds(1251), cap, Nanoseconds(5004)},
        {microseconds(3), cap, microseconds(12)},
        {Nanoseconds(12'499), cap, Nanoseconds(49'996)},
        {Nanoseconds(12'500), cap, cap},
        {Nanoseconds(12'501), cap, cap},
        {milliseconds(5), cap, cap},
        {milliseconds(5), seconds(1), microseconds(800)},
        {Nanoseconds(500), microseconds(3), microseconds(3)},
        {Nanoseconds(500), Nanoseconds(0), Nanoseconds(0)},
    };
    for (const Row& row : rows) {
        client_ = ClientPolling(microseconds(50));
        Call(Nanoseconds(0), row.roundTrip, true);
        EXPECT_EQ(client_.SpinLimit(row.cap), row.limit)
            << row.roundTrip.count() << ' ' << row.cap.count();
    }
}

TEST_F(ClientSide, SpinsForAsLongAsItMayForItsFirstAnswer) {
    EXPECT_EQ(client_.SpinLimit(kGreatestCap), kGreatestCap);
    Call(Nanoseconds(0), microseconds(70), false);
    EXPECT_EQ(client_.SpinLimit(kGreatestCap), kGreatestCap) << "that one was no spin";
}

TEST_F(ClientSide, SmoothsTheRoundTripThroughMemory) {
    Call(Nanoseconds(0), microseconds(8), true);
    Call(Nanoseconds(0), microseconds(16), true);
    EXPECT_EQ(client_.SpinLimit(seconds(1)), microseconds(36));
    Call(Nanoseconds(0), microseconds(1), true);
    EXPECT_EQ(client_.SpinLimit(seconds(1)), microseconds(32));
}

TEST_F(ClientSide, ForgetsTheRoundTripThroughMemoryWhileItCallsBySocket) {
    Call(Nanoseconds(0), microseconds(32), true);
    Call(Nanoseconds(0), microseconds(500), false);
    EXPECT_EQ(client_.SpinLimit(seconds(1)), microseconds(124));
    Calls(1000, Nanoseconds(0));
    EXPECT_EQ(client_.SpinLimit(seconds(1)), microseconds(5));
}

// -- Asking for memory again.

TEST(MemoryRequestBackoff, WaitsLongerForEachRefusal) {
    MemoryRequestBackoff backoff;
    EXPECT_TRUE(backoff.Allows(TimePoint::min()));
    TimePoint now = kDawn;
    for (const int wait : {1, 2, 4, 8, 16, 30, 30}) {
        backoff.Refused(now);
        now += seconds(wait);
        EXPECT_FALSE(backoff.Allows(now - kTick)) << wait;
        EXPECT_TRUE(backoff.Allows(now)) << wait;
        EXPECT_TRUE(backoff.Allows(now + kTick)) << wait;
    }
}

TEST(MemoryRequestBackoff, TakesMemoryThatWasLostWithin10SecondsForRefused) {
    for (const auto& [lived, isRefused] :
         {std::pair(seconds(10) - kTick, true), std::pair(Nanoseconds(seconds(10)), false),
          std::pair(seconds(10) + kTick, false)}) {
        MemoryRequestBackoff backoff;
        backoff.Refused(kDawn);
        const TimePoint granted = kDawn + seconds(1);
        backoff.Granted(granted);
        const TimePoint lost = granted + lived;
        backoff.Lost(lost);
        EXPECT_EQ(backoff.Allows(lost), !isRefused);
        EXPECT_EQ(backoff.Allows(lost + seconds(2) - kTick), !isRefused);
        EXPECT_TRUE(backoff.Allows(lost + seconds(2)));
        backoff.Refused(lost + seconds(2));
        EXPECT_EQ(backoff.Allows(lost + seconds(3)), !isRefused) << "the doubling begins anew";
    }
}

}  // namespace
}  // namespace zam_platform::testing
