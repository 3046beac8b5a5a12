#include "call_canceller.h"

#include <gtest/gtest.h>

#include "call_scope.h"
#include "library/zor_ipc/notification/fake_call.h"

namespace zam_connector::proxy {
namespace {

using test::FakeCall;

TEST(CallCanceller, EndsTheCallsUnderWayAndRefusesLaterOnes) {
    CallCanceller canceller;
    const CallScope outer({.canceller = &canceller});
    const FakeCall first;
    const CallScope inner({.canceller = &canceller});
    EXPECT_TRUE(first.isEntered);
    EXPECT_FALSE(canceller.IsCancelled());
    canceller.Cancel();
    EXPECT_TRUE(canceller.IsCancelled());
    EXPECT_EQ(first.interruptions, 1);
    EXPECT_FALSE(FakeCall().isEntered);
}

/// Entries leave in any order, as threads do.
TEST(CallCanceller, KnowsEveryCallUnderWay) {
    CallCanceller canceller;
    constexpr std::size_t kCalls = 3;
    for (std::size_t gone = 0; gone < kCalls; ++gone) {
        CallCanceller::Entry entries[kCalls];
        FakeCall calls[kCalls];
        for (std::size_t at = 0; at < kCalls; ++at) {
            ASSERT_TRUE(canceller.Enter(entries[at], &calls[at]));
        }
        canceller.Leave(entries[gone]);
        CallCanceller ending;
        for (std::size_t at = 0; at < kCalls; ++at) {
            if (at != gone) {
                canceller.Leave(entries[at]);
                ASSERT_TRUE(ending.Enter(entries[at], &calls[at]));
            }
        }
        ending.Cancel();
        for (std::size_t at = 0; at < kCalls; ++at) {
            EXPECT_EQ(calls[at].interruptions, at == gone ? 0 : 1) << at;
        }
    }
    canceller.Cancel();
}

TEST(CallCanceller, LeavesCallsThatHaveEndedAlone) {
    CallCanceller canceller;
    const CallScope scope({.canceller = &canceller});
    FakeCall ended;
    ended.Leave();
    canceller.Cancel();
    EXPECT_EQ(ended.interruptions, 0);
    EXPECT_FALSE(FakeCall().isEntered);
}

}  // namespace
}  // namespace zam_connector::proxy
