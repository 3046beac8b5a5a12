#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <deque>

#include "steps/stepping_server.h"
#include "support/memory_peer.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using Clock = std::chrono::steady_clock;

/// A service that somebody else's need of the CPU meets while each of its looks finds a request, so
/// that it never looks in vain.
class PreemptedWhileServing : public ::testing::Test {
protected:
    PreemptedWhileServing() { stage_.PollFor(kPollsForEver); }

    static Bytes CloseCallOf(std::uint64_t number) {
        return FrameOf({.kind = FrameKind::Call, .callNumber = number, .flags = kElsewhere.Flags()},
                       MessageBytes(MakeMessage(kEcho, number)));
    }

    static bool IsLookedFor(const MemoryPeer& peer) {
        return peer.Answers().polling.load() == kPolling;
    }

    /// A client for whose request 2 the service looks.
    MemoryPeer NewPolledPeer(unsigned char tokenByte) {
        MemoryPeer peer(*server_, tokenByte);
        peer.Socket().Send(CloseCallOf(1));
        peer.Socket().ReadFrame();
        EXPECT_TRUE(IsLookedFor(peer));
        return peer;
    }

    void AwaitService() {
        ASSERT_TRUE(AwaitSoon("the service", [this] { return stage_.IsHeld(Side::Service); }));
    }

    Stage& stage_ = Stage::Get();
    zam_connector::testing::RecordingLogger logger_;
    SteppingServer server_;
};

TEST_F(PreemptedWhileServing, LooksNoMoreForAnyoneBeforeItServesTheNext) {
    std::deque<MemoryPeer> peers;
    while (peers.size() < 3) {
        peers.push_back(NewPolledPeer(static_cast<unsigned char>(peers.size())));
    }
    stage_.Go(Side::Service, Stage::BitOf(Step::ServiceLooksWhoWaits));
    peers[0].Put(2, CloseCallOf(2));
    AwaitService();
    // The answer is there: this is the next call, which the next look would find.
    ASSERT_EQ(peers[0].Answers().answer.load(), 2U);
    peers[0].Put(3, CloseCallOf(3));
    stage_.Preempt(Side::Service, true);
    stage_.Go(Side::Service, Stage::BitOf(Step::ServiceTells) | Stage::BitOf(Step::ServiceTakes));
    AwaitService();
    EXPECT_EQ(stage_.HeldAt(Side::Service), Step::ServiceTells);
    // While the CPU is somebody else's the policy has the service look for nobody.
    stage_.PollFor(0);
    stage_.Go(Side::Service);
    EXPECT_EQ(MessageIn(peers[0].AwaitAnswer(3).fixed).value, 3U);
    EXPECT_TRUE(server_.ComesToRest());
    for (const MemoryPeer& peer : peers) {
        EXPECT_FALSE(IsLookedFor(peer));
    }
    EXPECT_EQ(server_->Endpoint().Calls().size(), 5U);
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(PreemptedWhileServing, TakesTheTimeOfACallForAHoleAsWell) {
    MemoryPeer peer = NewPolledPeer(0x11);
    stage_.Go(Side::Service, Stage::BitOf(Step::ServiceHandles));
    peer.Put(2, CloseCallOf(2));
    AwaitService();
    stage_.ForgetHoles();
    const auto begin = Clock::now();
    while (Clock::now() < begin + std::chrono::milliseconds(5)) {
    }
    const std::int64_t held = std::chrono::nanoseconds(Clock::now() - begin).count();
    // It looks at the clock once, and stands before the look at the memory that follows.
    stage_.Go(Side::Service, Stage::BitOf(Step::ServiceLooks));
    AwaitService();
    Await("a hole that long", [&] { return stage_.LongestHole() >= held; });
}

}  // namespace
}  // namespace zam_platform::testing
