#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>

#include "support/memory_peer.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// A server that takes no more, and brings to its end what is under way.
class ServerClosing : public ::testing::Test {
protected:
    /// Behind this the test's thread runs the loop.
    void TakeNoMore() {
        server_.Stop();
        server_.Get().TakeNoMore();
        calls_ = server_.Endpoint().Calls().size();
    }

    void ExpectNothingIsTaken() {
        server_.Get().RunReady();
        EXPECT_EQ(server_.Endpoint().Calls().size(), calls_);
        EXPECT_TRUE(logger_.Records().empty());
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_{
        {.spinCap = std::chrono::microseconds(50), .memoryKept = std::chrono::milliseconds(50)}};
    std::size_t calls_ = 0;
};

TEST_F(ServerClosing, TakesNothingOfAClientThatGoesOnUploading) {
    const RawSocket client = server_.Greet();
    client.Send(CallFrame(1, kEcho, 1, Pattern(5000)));
    client.ReadFrame();
    TakeNoMore();
    // As much as the socket takes: nobody reads it.
    const Bytes piece = CallFrame(2, kEcho, 1, Pattern(5000));
    for (int pieces = 0; pieces < 10; ++pieces) {
        client.Send(piece);
        ExpectNothingIsTaken();
    }
    EXPECT_FALSE(client.HasInput());
    server_.Destroy();
    EXPECT_TRUE(client.EndsNow());
}

TEST_F(ServerClosing, TakesNoRestOfAFrameThatHasBegun) {
    const RawSocket client = server_.Greet();
    const Bytes piece = CallFrame(1, kEcho, 1, Pattern(5000));
    client.Send(Head(piece, 3000));
    client.AwaitTaken();
    TakeNoMore();
    client.Send(Tail(piece, 3000));
    ExpectNothingIsTaken();
    EXPECT_FALSE(client.HasInput());
}

TEST_F(ServerClosing, AnswersWhatItHasTakenWhileOthersGoOn) {
    const RawSocket waiting = server_.Greet(0x22);
    waiting.Send(CallFrame(1, kHold, 17));
    server_.Endpoint().AwaitHeld(1);
    const RawSocket client = server_.Greet();
    client.Send(CallFrame(1, kEcho, 1));
    client.ReadFrame();
    TakeNoMore();
    client.Send(CallFrame(2, kEcho, 2));
    waiting.Send(LookupFrame("x", 2));
    ExpectNothingIsTaken();
    {
        const Background worker([this] { server_.Endpoint().ReleaseAll(); });
    }
    ExpectNothingIsTaken();
    EXPECT_EQ(ToHex(waiting.Read(64)), ToHex(FrameOf({.kind = FrameKind::Answer, .callNumber = 1},
                                                     MessageBytes(MakeMessage(kHold, 17)))));
    EXPECT_FALSE(waiting.HasInput());
    EXPECT_FALSE(client.HasInput());
}

TEST_F(ServerClosing, TakesNobodyIn) {
    TakeNoMore();
    const RawSocket client = server_.Greet();
    client.Send(CallFrame(1, kEcho, 1));
    ExpectNothingIsTaken();
    EXPECT_EQ(server_.Get().ConnectionCount(), 0U);
}

/// Neither when a look tells of it nor by the last look, when the memory is given up.
TEST_F(ServerClosing, TakesNothingFromMemory) {
    MemoryPeer told(server_, 0x11);
    MemoryPeer found(server_, 0x22);
    told.Call(1, CallFrame(1, kEcho, 1));
    found.Call(1, CallFrame(1, kEcho, 1));
    TakeNoMore();
    told.Put(2, CallFrame(2, kEcho, 2));
    told.Look(2);
    found.Put(2, CallFrame(2, kEcho, 2));
    ExpectNothingIsTaken();
    while (found.Answers().polling.load() != kGivenUp) {
        server_.Get().RunOne();
    }
    ExpectNothingIsTaken();
    for (const MemoryPeer* const peer : {&told, &found}) {
        EXPECT_EQ(peer->Answers().taken.load(), 1U) << "the successor may take it";
        EXPECT_EQ(peer->Answers().answer.load(), 1U);
    }
    server_.Destroy();
    EXPECT_TRUE(found.Socket().EndsNow());
    EXPECT_TRUE(told.Socket().EndsNow());
}

TEST_F(ServerClosing, GivesNoMemory) {
    const RawSocket client = server_.Greet();
    client.Send(CallFrame(1, kEcho, 1));
    client.ReadFrame();
    TakeNoMore();
    const std::size_t mappings = SharedMappings();
    client.Send(MemoryRequestFrame(1));
    ExpectNothingIsTaken();
    EXPECT_FALSE(client.HasInput());
    EXPECT_EQ(SharedMappings(), mappings);
}

}  // namespace
}  // namespace zam_platform::testing
