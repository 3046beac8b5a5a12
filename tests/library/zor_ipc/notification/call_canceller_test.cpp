#include "call_canceller.h"

#include <gtest/gtest.h>

#include "library/zor_ipc/notification/fake_call.h"

namespace zam_connector::proxy {
namespace {

using test::FakeCall;

TEST(CallCanceller, EndsTheCallsUnderWayAndRefusesLaterOnes) {
    CallCanceller canceller;
    const CallScope scope(&canceller);
    const FakeCall first;
    const FakeCall second;
    EXPECT_TRUE(first.isEntered);
    EXPECT_FALSE(canceller.IsCancelled());
    canceller.Cancel();
    EXPECT_TRUE(canceller.IsCancelled());
    EXPECT_EQ(first.interruptions, 1);
    EXPECT_EQ(second.interruptions, 1);
    EXPECT_FALSE(FakeCall().isEntered);
}

TEST(CallCanceller, LeavesCallsThatHaveEndedAlone) {
    CallCanceller canceller;
    const CallScope scope(&canceller);
    FakeCall ended;
    ended.Leave();
    canceller.Cancel();
    EXPECT_EQ(ended.interruptions, 0);
    EXPECT_FALSE(FakeCall().isEntered);
}

TEST(CallScope, EndsWithTheObject) {
    CallCanceller canceller;
    {
        const CallScope scope(&canceller);
        EXPECT_NE(FakeCall::Bounds(), nullptr);
    }
    EXPECT_EQ(FakeCall::Bounds(), nullptr);
    canceller.Cancel();
    EXPECT_TRUE(FakeCall().isEntered);
}

TEST(CallScope, IsUnderTheCancellersOfThoseAroundIt) {
    CallCanceller outer;
    CallCanceller inner;
    const CallScope around(&outer);
    {
        const CallScope within(&inner);
        const FakeCall call;
        outer.Cancel();
        EXPECT_EQ(call.interruptions, 1);
        inner.Cancel();
        EXPECT_EQ(call.interruptions, 2);
    }
    CallCanceller fresh;
    const CallScope within(&fresh);
    EXPECT_FALSE(FakeCall().isEntered);
    EXPECT_FALSE(fresh.IsCancelled());
}

TEST(CallScope, KeepsTheDeadlineAroundIt) {
    VdCallBounds bounds{};
    bounds.deadlineNs = 12345;
    VdZorTransport_SetCallBounds(&bounds);
    {
        const CallScope scope(nullptr);
        EXPECT_NE(FakeCall::Bounds(), &bounds);
        EXPECT_EQ(FakeCall::Bounds()->deadlineNs, 12345);
    }
    EXPECT_EQ(FakeCall::Bounds(), &bounds);
    VdZorTransport_SetCallBounds(nullptr);
}

TEST(CallScope, TellsHowTheLastCallEnded) {
    const CallScope scope(nullptr);
    EXPECT_EQ(scope.LastStatus(), 0);
    {
        const CallScope inner(nullptr);
        FakeCall::Bounds()->lastStatus = 17;
        EXPECT_EQ(inner.LastStatus(), 17);
    }
    EXPECT_EQ(scope.LastStatus(), 17) << "it was this one's last call too";
    { const CallScope without(nullptr); }
    EXPECT_EQ(scope.LastStatus(), 17) << "no call was made";
}

}  // namespace
}  // namespace zam_connector::proxy
