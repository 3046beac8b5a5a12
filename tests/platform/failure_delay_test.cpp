#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <vector>

#include "support/test_call.h"
#include "vd/call_bounds.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_platform/posix_error.h"

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class FailureDelay : public ::testing::Test {
protected:
    /// Makes calls while there is no service, so many that the delay has reached its end.
    void FailNineTimes() {
        link_.FailToConnect(kStatusUnavailable);
        for (int round = 0; round < 9; ++round) {
            EXPECT_EQ(TestCall().On(*link_), kStatusUnavailable);
        }
    }

    /// One complete exchange.
    void Succeed() {
        link_.FailToConnect(kStatusOk);
        link_.Prepare(AnswerFrame(1, 1));
        EXPECT_EQ(TestCall().On(*link_), kStatusOk);
        link_.Next().Close();
    }

    template <typename Act>
    static Clock::duration TimeOf(Act act) {
        const auto start = Clock::now();
        act();
        return Clock::now() - start;
    }

    /// The machine may be busy; what is always slow is slow five times.
    template <typename Act>
    static Clock::duration FastestOfFive(Act act) {
        Clock::duration fastest = Clock::duration::max();
        for (int round = 0; round < 5; ++round) {
            fastest = std::min(fastest, act());
        }
        return fastest;
    }

    zam_connector::testing::RecordingLogger logger_;
    PairedLink link_;
};

TEST_F(FailureDelay, DoublesFromOneMillisecondToAQuarterOfASecond) {
    link_.FailToConnect(kStatusUnavailable);
    std::vector<Clock::duration> taken;
    for (const int expected : {1, 2, 4, 8, 16, 32, 64, 128, 250, 250, 250}) {
        taken.push_back(TimeOf([this] { EXPECT_EQ(TestCall().On(*link_), kStatusUnavailable); }));
        EXPECT_GE(taken.back(), milliseconds(expected));
    }
    EXPECT_LT(std::min(taken[9], taken[10]), milliseconds(500)) << "it goes on doubling";
}

/// As who makes connectors until a service is there does.
TEST_F(FailureDelay, SpacesOpensLikeCalls) {
    link_.FailToConnect(kStatusUnavailable);
    for (const int expected : {1, 2, 4, 8, 16, 32, 64, 128, 250}) {
        EXPECT_GE(TimeOf([this] { EXPECT_THROW((*link_).Open(), PlatformError); }),
                  milliseconds(expected));
    }
    link_.FailToConnect(kStatusOk);
    EXPECT_NO_THROW((*link_).Open());
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusOk);
}

TEST_F(FailureDelay, ComesBehindTheAttempt) {
    FailNineTimes();
    const auto fastest = FastestOfFive([this] {
        const std::size_t before = link_.Attempts();
        const Background call([this] { TestCall().On(*link_); });
        return TimeOf([&] { Await("the attempt", [&] { return link_.Attempts() > before; }); });
    });
    EXPECT_LT(fastest, milliseconds(200));
}

TEST_F(FailureDelay, StartsAnewAfterACompleteAnswer) {
    FailNineTimes();
    Succeed();
    link_.FailToConnect(kStatusUnavailable);
    const auto taken = TimeOf([this] {
        for (int round = 0; round < 4; ++round) {
            TestCall().On(*link_);
        }
    });
    EXPECT_GE(taken, milliseconds(1 + 2 + 4 + 8));
    EXPECT_LT(taken, milliseconds(700)) << "four delays of the full length would take 1 s";
}

TEST_F(FailureDelay, DoesNotCountStatusesThatTheServiceAnswersWith) {
    FailNineTimes();
    link_.FailToConnect(kStatusOk);
    constexpr std::uint64_t kCalls = 100;
    const Background script([this] {
        const RawSocket peer = link_.Next();
        peer.ReadFrame();
        for (std::uint64_t number = 1; number <= kCalls; ++number) {
            peer.ReadFrame();
            peer.Send(StatusFrame(FrameKind::Answer, number, kStatusBroken));
        }
    });
    const auto taken = TimeOf([this] {
        for (std::uint64_t number = 1; number <= kCalls; ++number) {
            EXPECT_EQ(TestCall().On(*link_), kStatusBroken);
        }
    });
    EXPECT_LT(taken, milliseconds(250 * kCalls / 2));
    EXPECT_EQ(link_.Connections(), 1U);
}

TEST_F(FailureDelay, DoesNotCountRequestsThatWereNeverTried) {
    TestCall call;
    call.RequestArena(Bytes(kMaxArenaBytes + 1));
    const auto taken = TimeOf([&] {
        for (int round = 0; round < 14; ++round) {
            EXPECT_EQ(call.On(*link_), kStatusRequestTooLarge);
        }
    });
    EXPECT_LT(taken, milliseconds(1000)) << "fourteen delays would take 1.7 s";
}

/// They say nothing about the service.
TEST_F(FailureDelay, DoesNotCountWhatWasNeverMade) {
    VdCallBounds over{};
    over.deadlineNs = 1;
    const auto fastest = FastestOfFive([&] {
        Succeed();
        for (int round = 0; round < 14; ++round) {
            EXPECT_EQ(TestCall().Bounds(over).On(*link_), kStatusTimeout);
            EXPECT_EQ((*link_).Lookup("endpoint", &over), VD_UNKNOWN_RIID);
            EXPECT_THROW((*link_).Open(&over), PlatformError);
            EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusTimeout);
        }
        link_.RunOutOfMemoryInConnects(true);
        for (int round = 0; round < 14; ++round) {
            EXPECT_THROW((*link_).Open(), std::bad_alloc);
            EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusResources);
        }
        link_.RunOutOfMemoryInConnects(false);
        link_.FailToConnect(kStatusUnavailable);
        return TimeOf([this] { EXPECT_EQ(TestCall().On(*link_), kStatusUnavailable); });
    });
    EXPECT_LT(fastest, milliseconds(200)) << "the last delay is 250 ms";
}

TEST_F(FailureDelay, DoesNotOutlastTheDeadlineOfACall) {
    FailNineTimes();
    TestCall call;
    call.Timeout(milliseconds(5));
    const auto taken = TimeOf([&] {
        for (int round = 0; round < 10; ++round) {
            EXPECT_EQ(call.On(*link_), kStatusUnavailable);
        }
    });
    EXPECT_GE(taken, milliseconds(10 * 5)) << "spaced out up to the deadline all the same";
    EXPECT_LT(taken, milliseconds(1500)) << "ten delays would take 2.5 s";
}

TEST_F(FailureDelay, HoldsUpNoOtherCall) {
    const auto fastest = FastestOfFive([this] {
        link_.FailToConnect(kStatusOk);
        Background call([this] { EXPECT_EQ(TestCall().On(*link_), kStatusOk); });
        RawSocket peer = link_.Next();
        peer.ReadFrame();
        peer.ReadFrame();
        FailNineTimes();
        const std::size_t before = link_.Attempts();
        const Background failing([this] { TestCall().On(*link_); });
        Await("the failing attempt", [&] { return link_.Attempts() > before; });
        const auto taken = TimeOf([&] {
            peer.Send(AnswerFrame(1, 1));
            call.Join();
        });
        peer.Close();
        return taken;
    });
    EXPECT_LT(fastest, milliseconds(200));
}

TEST_F(FailureDelay, KeepsARetryLoopFromBurningACore) {
    link_.FailToConnect(kStatusUnavailable);
    const auto threadTime = [] {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto cpuStart = threadTime();
    const auto start = Clock::now();
    int attempts = 0;
    while (Clock::now() - start < milliseconds(1500)) {
        TestCall().On(*link_);
        ++attempts;
    }
    EXPECT_LE(attempts, 8 + 6) << "255 ms of growing delays, then one in 250 ms";
    EXPECT_LT((threadTime() - cpuStart) * 20, Clock::now() - start) << "5 % of a core";
}

}  // namespace
}  // namespace zam_platform::testing
