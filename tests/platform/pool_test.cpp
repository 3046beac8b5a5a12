#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "support/test_call.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

class Pool : public ::testing::Test {
protected:
    /// Starts a call on a thread of its own and gives the end of the connection that it made, with
    /// greeting and request read.
    RawSocket StartCall(std::vector<std::unique_ptr<Background>>& calls, std::int32_t expected) {
        calls.push_back(std::make_unique<Background>([this, expected] {
            TestCall call;
            EXPECT_EQ(call.On(*link_), expected);
        }));
        RawSocket peer = link_.Next();
        peer.ReadFrame();
        EXPECT_EQ(peer.ReadFrame().prelude.kind, FrameKind::Call);
        return peer;
    }

    zam_connector::testing::RecordingLogger logger_;
    PairedLink link_;
};

TEST_F(Pool, SequentialCallsShareOneConnection) {
    link_.Prepare(AnswerFrame(1, 1));
    TestCall call;
    ASSERT_EQ(call.On(*link_), kStatusOk);
    const RawSocket peer = link_.Next();
    for (std::uint64_t number = 2; number <= 100; ++number) {
        peer.Send(AnswerFrame(number, number));
        ASSERT_EQ(call.On(*link_), kStatusOk);
        ASSERT_EQ(call.Value(), number);
    }
    EXPECT_EQ(link_.Attempts(), 1U);
}

TEST_F(Pool, CallsInFlightHaveConnectionsOfTheirOwnAndSixteenAreKept) {
    constexpr std::size_t kCalls = 24;
    std::vector<std::unique_ptr<Background>> calls;
    std::vector<RawSocket> peers;
    for (std::size_t index = 0; index < kCalls; ++index) {
        peers.push_back(StartCall(calls, kStatusOk));
    }
    EXPECT_EQ(link_.Connections(), kCalls);
    for (std::size_t index = 0; index < kCalls; ++index) {
        peers[index].Send(AnswerFrame(1, index));
        calls[index]->Join();
        EXPECT_EQ(peers[index].HasInput(), index >= kMaxIdleChannels) << index;
    }
    for (std::size_t index = kMaxIdleChannels; index < kCalls; ++index) {
        EXPECT_TRUE(peers[index].EndsNow());
    }

    // All that were kept are used again before another is made.
    calls.clear();
    for (std::size_t index = 0; index < kMaxIdleChannels; ++index) {
        calls.push_back(
            std::make_unique<Background>([this] { EXPECT_EQ(TestCall().On(*link_), kStatusOk); }));
    }
    for (std::size_t index = 0; index < kMaxIdleChannels; ++index) {
        EXPECT_EQ(peers[index].ReadFrame().prelude.callNumber, 2U);
    }
    StartCall(calls, kStatusBroken).Close();
    EXPECT_EQ(link_.Connections(), kCalls + 1);
    for (std::size_t index = 0; index < kMaxIdleChannels; ++index) {
        peers[index].Send(AnswerFrame(2, index));
    }
}

TEST_F(Pool, TakesTheConnectionThatWasUsedLast) {
    std::vector<std::unique_ptr<Background>> calls;
    std::vector<RawSocket> peers;
    for (int index = 0; index < 3; ++index) {
        peers.push_back(StartCall(calls, kStatusOk));
    }
    for (const std::size_t index : {1U, 2U, 0U}) {
        peers[index].Send(AnswerFrame(1, 0));
        calls[index]->Join();
    }
    for (std::uint64_t number = 2; number < 5; ++number) {
        peers[0].Send(AnswerFrame(number, number));
        TestCall call;
        ASSERT_EQ(call.On(*link_), kStatusOk);
        EXPECT_EQ(call.Value(), number);
    }
    EXPECT_FALSE(peers[1].HasInput());
    EXPECT_FALSE(peers[2].HasInput());
}

TEST_F(Pool, KeepsTheConnectionThatItWasOpenedWith) {
    (*link_).Open();
    const RawSocket peer = link_.Next();
    EXPECT_FALSE(peer.HasInput()) << "nothing is sent before the first call";
    peer.Send(AnswerFrame(1, 8));
    EXPECT_EQ(TestCall().On(*link_), kStatusOk);
    EXPECT_EQ(link_.Attempts(), 1U);
}

TEST_F(Pool, KeepsOneTokenForAllConnections) {
    for (int index = 0; index < 3; ++index) {
        link_.Prepare(Bytes(), PairedLink::Then::EndSending);
        EXPECT_EQ(TestCall().On(*link_), kStatusBroken);
        link_.Next();
    }
    const auto tokens = link_.Tokens();
    EXPECT_EQ(tokens[0], tokens[1]);
    EXPECT_EQ(tokens[0], tokens[2]);
    EXPECT_NE(tokens[0], SessionToken{});
    PairedLink other;
    (*other).Open();
    EXPECT_NE(tokens[0], other.Tokens()[0]);
}

TEST_F(Pool, LeadsACallFromADeadConnectionToANewOneOnce) {
    link_.Prepare(AnswerFrame(1, 1));
    ASSERT_EQ(TestCall().On(*link_), kStatusOk);
    link_.Next().Close();
    link_.Prepare(AnswerFrame(1, 2));
    TestCall call(0, 0x42);
    ASSERT_EQ(call.On(*link_), kStatusOk);
    EXPECT_EQ(call.Value(), 2U);
    EXPECT_EQ(link_.Attempts(), 2U);

    const RawSocket peer = link_.Next();
    EXPECT_EQ(peer.ReadFrame().prelude.kind, FrameKind::Hello);
    const Frame request = peer.ReadFrame();
    EXPECT_EQ(request.prelude.callNumber, 1U);
    EXPECT_EQ(MessageIn(request.fixed).value, 0x42U);
    EXPECT_FALSE(peer.HasInput()) << "the request came twice";
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(Pool, GivesUpWhenTheNewConnectionTakesNothingEither) {
    link_.Prepare(AnswerFrame(1, 1));
    ASSERT_EQ(TestCall().On(*link_), kStatusOk);
    link_.Next().Close();
    link_.Prepare(Bytes(), PairedLink::Then::Close);
    EXPECT_EQ(TestCall().On(*link_), kStatusBroken);
    EXPECT_EQ(link_.Attempts(), 2U);
}

TEST_F(Pool, IsUnavailableWhenADeadConnectionHasNoSuccessor) {
    link_.Prepare(AnswerFrame(1, 1));
    ASSERT_EQ(TestCall().On(*link_), kStatusOk);
    link_.Next().Close();
    link_.FailToConnect(kStatusUnavailable);
    EXPECT_EQ(TestCall().On(*link_), kStatusUnavailable);
    EXPECT_EQ(link_.Attempts(), 2U);
    link_.FailToConnect(kStatusOk);
    link_.Prepare(AnswerFrame(1, 1));
    EXPECT_EQ(TestCall().On(*link_), kStatusOk) << "the first call after the service is back";
}

TEST_F(Pool, DoesNotRepeatACallOnAFreshConnection) {
    link_.Prepare(Bytes(), PairedLink::Then::Close);
    EXPECT_EQ(TestCall().On(*link_), kStatusBroken);
    EXPECT_EQ(link_.Attempts(), 1U);
}

TEST_F(Pool, TellsWhyAFreshConnectionTookNothing) {
    link_.Prepare(StatusFrame(FrameKind::Refusal, 0, kStatusQuota), PairedLink::Then::Close);
    EXPECT_EQ(TestCall().On(*link_), kStatusQuota);
    EXPECT_EQ(link_.Attempts(), 1U);
}

TEST_F(Pool, DoesNotTakeAnOldRefusalForTheAnswerOfACall) {
    link_.Prepare(StatusFrame(FrameKind::Refusal, 0, kStatusQuota), PairedLink::Then::Close);
    (*link_).Open();
    link_.Prepare(AnswerFrame(1, 3));
    TestCall call;
    EXPECT_EQ(call.On(*link_), kStatusOk);
    EXPECT_EQ(call.Value(), 3U);
    EXPECT_EQ(link_.Attempts(), 2U);
}

TEST_F(Pool, NeverSendsACallTwiceOnceAByteWasTaken) {
    link_.Prepare(AnswerFrame(1, 1));
    ASSERT_EQ(TestCall().On(*link_), kStatusOk);
    RawSocket peer = link_.Next();
    peer.ReadFrame();
    peer.ReadFrame();
    {
        const Background script([&peer] {
            peer.ReadFrame();
            peer.Close();
        });
        EXPECT_EQ(TestCall().On(*link_), kStatusBroken);
    }
    EXPECT_EQ(link_.Attempts(), 1U);
}

TEST_F(Pool, NeverSendsALargeCallTwiceOnceAPartOfItWasTaken) {
    link_.UseTinyBuffers();
    link_.Prepare(AnswerFrame(1, 1));
    ASSERT_EQ(TestCall().On(*link_), kStatusOk);
    RawSocket peer = link_.Next();
    const Background script([&peer] {
        peer.Read(48 + 64 + 1000);
        peer.Close();
    });
    TestCall call;
    call.RequestArena(Pattern(kMaxArenaBytes));
    EXPECT_EQ(call.On(*link_), kStatusBroken);
    EXPECT_EQ(link_.Attempts(), 1U);
}

TEST_F(Pool, HearsTheRefusalOfALargeRequestThatIsNotReadToItsEnd) {
    link_.UseTinyBuffers();
    const Background script([this] {
        RawSocket peer = link_.Next();
        peer.Read(1000);
        peer.Send(StatusFrame(FrameKind::Refusal, 0, kStatusBadRequest));
        peer.Close();
    });
    TestCall call;
    call.RequestArena(Pattern(kMaxArenaBytes));
    EXPECT_EQ(call.On(*link_), kStatusBadRequest);
}

TEST_F(Pool, LooksEndpointsUpOverTheSameConnections) {
    link_.Prepare(FrameOf({.kind = FrameKind::LookupAnswer, .callNumber = 1},
                          FromHex("34 12 00 00 00 00 00 00")));
    EXPECT_EQ((*link_).Lookup("some.endpoint"), 0x1234U);
    const RawSocket peer = link_.Next();
    peer.ReadFrame();
    const Frame lookup = peer.ReadFrame();
    EXPECT_EQ(lookup.prelude.kind, FrameKind::Lookup);
    EXPECT_EQ(lookup.fixed, BytesOf("some.endpoint"));

    peer.Send(AnswerFrame(2, 1));
    EXPECT_EQ(TestCall().On(*link_), kStatusOk);
    EXPECT_EQ(link_.Attempts(), 1U);
}

TEST_F(Pool, KnowsNoEndpointWhenALookupFails) {
    const Prelude answer{.kind = FrameKind::LookupAnswer, .callNumber = 1};
    const Bytes rows[] = {
        FrameOf(answer, Bytes(7)),
        FrameOf(answer, Bytes(16)),
        FrameOf(answer, Bytes(8), {1}),
        FrameOf({.kind = FrameKind::Answer, .callNumber = 1}, Bytes(8)),
        StatusFrame(FrameKind::LookupAnswer, 1, 20),
        StatusFrame(FrameKind::Refusal, 0, 16),
        Bytes(),
    };
    for (const Bytes& row : rows) {
        link_.Prepare(row, PairedLink::Then::EndSending);
        EXPECT_EQ((*link_).Lookup("x"), 0xFFFFU) << ToHex(row);
    }
    EXPECT_EQ((*link_).Lookup(""), 0xFFFFU);
    EXPECT_EQ((*link_).Lookup(std::string(257, 'e')), 0xFFFFU);
    EXPECT_EQ(logger_.Records().back().text, "endpoint name of 257 bytes, not 1 to 256");
}

}  // namespace
}  // namespace zam_platform::testing
