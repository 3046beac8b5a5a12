#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "support/memory_peer.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

SessionToken SharedTokenOf(unsigned char byte) {
    SessionToken token;
    token.fill(byte);
    return token;
}

/// What becomes of a request in memory whose connection ends.
class ServerMemoryEnds : public ::testing::Test {
protected:
    void AwaitNobody() {
        Await("the connections' end", [this] { return server_.Connections() == 0; });
    }

    void ExpectLost(std::uint16_t operation, std::uint64_t value) {
        Await("the break", [this] { return !server_.LostCalls().empty(); });
        ASSERT_EQ(server_.LostCalls().size(), 1U);
        const LostCall lost = server_.LostCalls()[0];
        ASSERT_EQ(lost.kind, LostCall::Kind::Call);
        EXPECT_EQ(lost.operation, operation);
        EXPECT_EQ(lost.FirstField<std::uint64_t>(), value);
    }

    /// What the client does, the last of which is to go, is seen by a look for ends alone.
    void LookForEndsBehind(const std::function<void()>& deeds) {
        server_.OnLoop([&] {
            deeds();
            server_.Get().NoticeBroken(SharedTokenOf(0x11));
            return 0;
        });
    }

    static void ExpectNoCallLost(TestServer& server) {
        Await("the connections' end", [&server] { return server.Connections() == 0; });
        for (const LostCall& lost : server.LostCalls()) {
            EXPECT_EQ(lost.kind, LostCall::Kind::None);
        }
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_{{.spinCap = std::chrono::microseconds(50)}};
};

TEST_F(ServerMemoryEnds, LoseTheRequestThatWasNotServed) {
    MemoryPeer peer(server_);
    peer.Call(1, CallFrame(1, kEcho, 1));
    peer.Put(2, CallFrame(2, kFail, 22, Pattern(300)));
    peer.Socket().Close();
    ExpectLost(kFail, 22);
    AwaitNobody();
    EXPECT_EQ(server_.Endpoint().Calls().size(), 1U);
    EXPECT_EQ(peer.Answers().taken.load(), 1U);
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(ServerMemoryEnds, LoseTheRequestWhenTheyAreAskedFor) {
    MemoryPeer peer(server_);
    const auto broken = server_.OnLoop([&] {
        peer.Put(1, CallFrame(1, kEcho, 31));
        peer.Socket().Close();
        server_.Get().NoticeBroken(SharedTokenOf(0x11));
        return server_.BrokenSessions().size();
    });
    EXPECT_EQ(broken, 1U);
    ExpectLost(kEcho, 31);
    AwaitNobody();
    EXPECT_TRUE(server_.Endpoint().Calls().empty());
    EXPECT_EQ(peer.Answers().taken.load(), 0U);
}

TEST_F(ServerMemoryEnds, LoseTheRequestWhoseLookIsStillUnread) {
    MemoryPeer peer(server_);
    server_.OnLoop([&] {
        peer.Put(1, CallFrame(1, kEcho, 32));
        peer.Look(1);
        peer.Socket().Close();
        server_.Get().NoticeBroken(SharedTokenOf(0x11));
        return 0;
    });
    ExpectLost(kEcho, 32);
    AwaitNobody();
    EXPECT_TRUE(server_.Endpoint().Calls().empty());
}

TEST_F(ServerMemoryEnds, LoseNothingThatWasServed) {
    {
        MemoryPeer peer(server_);
        peer.Call(1, CallFrame(1, kEcho, 1));
        peer.Call(2, CallFrame(2, kEcho, 2));
    }
    AwaitNobody();
    EXPECT_TRUE(server_.BrokenSessions().empty());
    {
        MemoryPeer peer(server_);
        peer.Call(1, CallFrame(1, kEcho, 1));
        peer.Socket().Send(CallFrame(2, kEcho, 3));
        peer.Socket().ReadFrame();
    }
    AwaitNobody();
    { const MemoryPeer peer(server_); }
    AwaitNobody();
    EXPECT_TRUE(server_.BrokenSessions().empty());
}

TEST_F(ServerMemoryEnds, LoseTheCallThatWaitsForItsAnswer) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kHold, 41));
    peer.Look(1);
    server_.Endpoint().AwaitHeld(1);
    peer.Socket().Close();
    ExpectLost(kHold, 41);
    server_.Endpoint().ReleaseAll();
    AwaitNobody();
    EXPECT_EQ(peer.Answers().answer.load(), 0U);
}

TEST_F(ServerMemoryEnds, LoseTheCallWhoseClientIsNotToldOfItsAnswer) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kEcho, 42));
    peer.Requests().waiting.store(0);
    peer.Look(1);
    Await("the look", [&peer] { return peer.Socket().HasInput(); });
    peer.Socket().Close();
    ExpectLost(kEcho, 42);
}

/// It has the answer: it found it when it had said that it looks no more, and the look comes late.
TEST_F(ServerMemoryEnds, LoseNothingThatAClientTookBeforeItWasTold) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kEcho, 43));
    peer.Requests().waiting.store(0);
    peer.Look(1);
    peer.AwaitAnswer(1);
    peer.Requests().waiting.store(1);
    Await("the look", [&peer] { return peer.Socket().HasInput(); });
    peer.Socket().Close();
    AwaitNobody();
    EXPECT_TRUE(server_.BrokenSessions().empty());
}

TEST_F(ServerMemoryEnds, LoseNothingThatAClientTookBeforeTheMemoryWasGivenUp) {
    TestServer server{
        {.spinCap = std::chrono::microseconds(50), .memoryKept = std::chrono::milliseconds(250)}};
    const auto leaveALook = [&server](std::uint64_t number, MemoryPeer& peer) {
        peer.Put(number, CallFrame(number, kEcho, 43));
        peer.Requests().waiting.store(0);
        peer.Look(number);
        peer.AwaitAnswer(number);
        peer.Requests().waiting.store(number);
        Await("the end", [&peer] { return peer.Answers().polling.load() == kGivenUp; });
        EXPECT_TRUE(peer.Socket().HasInput()) << "a look that came late";
        EXPECT_EQ(server.BrokenSessions().size(), 0U);
    };
    {
        MemoryPeer peer(server);
        leaveALook(1, peer);
    }
    Await("the connection's end", [&server] { return server.Connections() == 0; });
    EXPECT_TRUE(server.BrokenSessions().empty());
    // What it leaves unread of a later call is lost as ever.
    MemoryPeer peer(server);
    leaveALook(1, peer);
    peer.Socket().ReadFrame();
    peer.Socket().Send(CallFrame(2, kEcho, 44));
    Await("the answer", [&peer] { return peer.Socket().HasInput(); });
    peer.Socket().Close();
    Await("the break", [&server] { return server.BrokenSessions().size() == 1; });
}

TEST_F(ServerMemoryEnds, LoseNothingThatAClientTookWhenTheyAreAskedFor) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kEcho, 43));
    peer.Requests().waiting.store(0);
    peer.Look(1);
    Await("the look", [&peer] { return peer.Socket().HasInput(); });
    peer.Requests().waiting.store(1);
    server_.OnLoop([&] {
        peer.Socket().Close();
        server_.Get().NoticeBroken(SharedTokenOf(0x11));
        return 0;
    });
    AwaitNobody();
    EXPECT_TRUE(server_.BrokenSessions().empty());
}

/// It left an answer unread that came by the socket, whatever it says.
TEST_F(ServerMemoryEnds, LoseTheCallWhoseAnswerIsLeftOnTheSocket) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kFill, 200000));
    peer.Look(1);
    Await("the answer", [&peer] { return peer.Socket().HasInput(); });
    peer.Socket().Close();
    ExpectLost(kFill, 200000);
}

/// A client that has had the answer of its last call and asks for memory, which it does not take.
TEST_F(ServerMemoryEnds, LoseNoCallWithAMemoryAnswerThatIsLeftUnread) {
    {
        const RawSocket client = server_.Greet(0x11);
        client.Send(CallFrame(1, kEcho, 3));
        EXPECT_EQ(MessageIn(client.ReadFrame().fixed).value, 3U);
        client.Send(MemoryRequestFrame(1));
        Await("the files", [&client] { return client.HasInput(); });
    }
    ExpectNoCallLost(server_);
}

TEST_F(ServerMemoryEnds, LoseNoCallWithAMemoryRequestThatIsUnread) {
    std::optional<RawSocket> client = server_.Greet(0x11);
    client->Send(CallFrame(1, kEcho, 3));
    EXPECT_EQ(MessageIn(client->ReadFrame().fixed).value, 3U);
    LookForEndsBehind([&] {
        client->Send(MemoryRequestFrame(1));
        client.reset();
    });
    ExpectNoCallLost(server_);
}

/// What was served before the look that tells of it was read.
TEST_F(ServerMemoryEnds, LoseNoCallWithALookThatIsUnread) {
    MemoryPeer peer(server_);
    peer.Call(1, CallFrame(1, kEcho, 1));
    peer.Call(2, CallFrame(2, kEcho, 2));
    LookForEndsBehind([&] {
        peer.Look(1);
        peer.Look(2);
        peer.Socket().Close();
    });
    ExpectNoCallLost(server_);
}

TEST_F(ServerMemoryEnds, LoseTheCallBehindALookThatIsUnread) {
    MemoryPeer peer(server_);
    peer.Call(1, CallFrame(1, kEcho, 1));
    LookForEndsBehind([&] {
        peer.Look(1);
        peer.Socket().Send(CallFrame(2, kFail, 33));
        peer.Socket().Close();
    });
    ExpectLost(kFail, 33);
}

TEST_F(ServerMemoryEnds, LoseNoCallWithALookThatIsSentBackAndLeftUnread) {
    TestServer server{
        {.spinCap = std::chrono::microseconds(50), .memoryKept = std::chrono::milliseconds(20)}};
    {
        MemoryPeer peer(server);
        peer.Call(1, CallFrame(1, kEcho, 3));
        Await("the end", [&peer] { return peer.Answers().polling.load() == kGivenUp; });
        peer.Look(2);
        Await("the look", [&peer] { return peer.Socket().HasInput(); });
    }
    ExpectNoCallLost(server);
}

TEST_F(ServerMemoryEnds, LoseWhatARuleRefusesTogetherWithItsRequest) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kEcho, 44));
    peer.Socket().Send(MemoryRequestFrame());
    EXPECT_EQ(peer.Socket().ReadFrame().prelude.status, kStatusBadRequest);
    AwaitNobody();
    EXPECT_TRUE(server_.Endpoint().Calls().empty());
    EXPECT_EQ(server_.BrokenSessions().size(), 1U);
}

TEST_F(ServerMemoryEnds, ServeNothingWhenTheServerGoes) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kEcho, 45));
    server_.Stop();
    peer.Look(1);
    server_.Destroy();
    EXPECT_TRUE(peer.Socket().EndsNow());
    EXPECT_EQ(peer.Answers().taken.load(), 0U);
    EXPECT_TRUE(server_.Endpoint().Calls().empty());
}

}  // namespace
}  // namespace zam_platform::testing
