#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned char kOther = 0x22;

SessionToken TokenOf(unsigned char byte) {
    SessionToken token;
    token.fill(byte);
    return token;
}

/// Which ends of connections count as breaks.
class ServerBreaks : public ::testing::Test {
protected:
    /// A client of its own, so that what is told is told of this one.
    RawSocket Greet(TestServer& server) {
        RawSocket client = server.Greet(++lastToken_);
        client.Send(LookupFrame("x"));
        client.ReadFrame();
        return client;
    }

    std::vector<SessionToken> Last() const { return {TokenOf(lastToken_)}; }

    static void AwaitBreak(TestServer& server) {
        Await("the break", [&server] { return !server.BrokenSessions().empty(); });
    }

    static void AwaitNobody(TestServer& server) {
        Await("the connections' end", [&server] { return server.Connections() == 0; });
    }

    zam_connector::testing::RecordingLogger logger_;
    unsigned char lastToken_ = 0x40;
};

TEST_F(ServerBreaks, AreConnectionsThatEndWithinAFrame) {
    const Bytes call = CallFrame(1, kEcho, 3, Pattern(1200));
    for (const std::size_t cut : {1U, 31U, 32U, 33U, 55U, 56U, 64U, 1000U, 1024U, 1263U}) {
        ASSERT_LT(cut, call.size());
        TestServer server;
        RawSocket client = Greet(server);
        client.Send(Head(call, cut));
        client.Close();
        AwaitBreak(server);
        AwaitNobody(server);
        EXPECT_EQ(server.BrokenSessions(), Last()) << cut;
    }
}

TEST_F(ServerBreaks, AreConnectionsThatEndBehindAFrameAndPartOfTheNext) {
    TestServer server;
    RawSocket client = Greet(server);
    client.Send(LookupFrame("x", 2) + Head(LookupFrame("x", 3), 7));
    client.ReadFrame();
    client.Close();
    AwaitBreak(server);
    EXPECT_EQ(server.BrokenSessions(), Last());
}

TEST_F(ServerBreaks, AreConnectionsThatEndBeforeTheirAnswer) {
    TestServer server;
    RawSocket client = Greet(server);
    client.Send(CallFrame(1, kHold, 1));
    server.Endpoint().AwaitHeld(1);
    client.Close();
    AwaitBreak(server);
    EXPECT_EQ(server.BrokenSessions(), Last());
    server.Endpoint().ReleaseAll();
}

TEST_F(ServerBreaks, AreConnectionsThatEndWithTheirAnswerHalfTaken) {
    TestServer server;
    RawSocket client = Greet(server);
    client.Send(CallFrame(1, kFill, 1U << 20U));
    client.Read(5000);
    client.Close();
    AwaitBreak(server);
    EXPECT_EQ(server.BrokenSessions(), Last());
}

TEST_F(ServerBreaks, AreConnectionsThatEndWithTheirAnswerUnread) {
    TestServer server;
    RawSocket client = Greet(server);
    client.Send(CallFrame(1, kEcho, 1));
    Await("the answer", [&client] { return client.HasInput(); });
    client.Close();
    AwaitBreak(server);
    EXPECT_EQ(server.BrokenSessions(), Last());
}

TEST_F(ServerBreaks, AreConnectionsThatTheServerEnds) {
    const std::pair<const char*, Bytes> rows[] = {
        {"a breach of a rule", Bytes(32)},
        {"a frame that does not go on", {0x5A}},
        {"a handler that drops the call", CallFrame(1, kDrop, 1)},
    };
    for (const auto& [what, bytes] : rows) {
        TestServer server({.frameTimeout = milliseconds(20)});
        const RawSocket client = Greet(server);
        client.Send(bytes);
        AwaitBreak(server);
        AwaitNobody(server);
        EXPECT_EQ(server.BrokenSessions(), Last()) << what;
    }
}

TEST_F(ServerBreaks, AreConnectionsThatAWorkerDrops) {
    TestServer server;
    const RawSocket client = Greet(server);
    client.Send(CallFrame(1, kHold, 1));
    server.Endpoint().AwaitHeld(1);
    server.Endpoint().TakeHeld().Drop();
    EXPECT_TRUE(client.EndsNow());
    AwaitBreak(server);
    EXPECT_EQ(server.BrokenSessions(), Last());
}

TEST_F(ServerBreaks, AreNotConnectionsThatEndBetweenFrames) {
    TestServer server;
    server.Greet(kOther).Close();
    RawSocket looked = Greet(server);
    RawSocket called = Greet(server);
    called.Send(CallFrame(2, kEcho, 3, Pattern(5000)));
    called.ReadFrame();
    RawSocket filled = Greet(server);
    filled.Send(CallFrame(2, kFill, 1U << 20U));
    filled.ReadFrame();
    for (RawSocket* const client : {&looked, &called, &filled}) {
        client->Close();
    }
    AwaitNobody(server);
    EXPECT_THAT(server.BrokenSessions(), IsEmpty());
}

TEST_F(ServerBreaks, AreNobodysBeforeTheGreeting) {
    TestServer server;
    RawSocket client = server.Connect();
    client.Send(Head(HelloFrame(), 40));
    client.AwaitTaken();
    client.Close();
    AwaitNobody(server);
    EXPECT_THAT(server.BrokenSessions(), IsEmpty());
}

TEST_F(ServerBreaks, AreNotToldOfWhenTheServerGoes) {
    TestServer server;
    const RawSocket halfway = Greet(server);
    halfway.Send(Head(CallFrame(1, kEcho, 3), 20));
    const RawSocket waiting = Greet(server);
    waiting.Send(CallFrame(1, kHold, 1));
    server.Endpoint().AwaitHeld(1);
    server.Destroy();
    EXPECT_THAT(server.BrokenSessions(), IsEmpty());
}

TEST_F(ServerBreaks, AreNoticedBeforeTheLoopComesToThem) {
    const Bytes call = CallFrame(1, kEcho, 3, Pattern(9000));
    for (const std::size_t sent : {1U, 100U, 5000U, 9064U}) {
        TestServer server;
        RawSocket client = Greet(server);
        const auto broken = server.OnLoop([&] {
            client.Send(Head(call, sent));
            client.Close();
            server.Get().NoticeBroken(TokenOf(lastToken_));
            return server.BrokenSessions();
        });
        EXPECT_EQ(broken, Last()) << sent << " bytes";
        AwaitNobody(server);
        EXPECT_EQ(server.BrokenSessions(), Last()) << "told once";
        EXPECT_THAT(server.Endpoint().Calls(), IsEmpty());
    }
}

TEST_F(ServerBreaks, AreNoticedWithAnAnswerUnderWay) {
    TestServer server;
    RawSocket client = Greet(server);
    client.Send(CallFrame(1, kEcho, 3));
    Await("the answer", [&client] { return client.HasInput(); });
    RawSocket waiting = server.Greet(lastToken_);
    waiting.Send(CallFrame(1, kHold, 1));
    server.Endpoint().AwaitHeld(1);
    const auto broken = server.OnLoop([&] {
        client.Close();
        waiting.Close();
        server.Get().NoticeBroken(TokenOf(lastToken_));
        return server.BrokenSessions();
    });
    EXPECT_THAT(broken, ElementsAre(TokenOf(lastToken_), TokenOf(lastToken_)));
    server.Endpoint().ReleaseAll();
}

TEST_F(ServerBreaks, AreNoticedNowhereElse) {
    TestServer server;
    RawSocket other = Greet(server);
    RawSocket idle = Greet(server);
    RawSocket halfway = server.Greet(lastToken_);
    halfway.Send(Head(CallFrame(1, kEcho, 3), 20));
    halfway.AwaitTaken();
    const auto broken = server.OnLoop([&] {
        other.Send({0x5A});
        other.Close();
        idle.Close();
        halfway.Send({Tail(CallFrame(1, kEcho, 3), 20)});
        server.Get().NoticeBroken(TokenOf(lastToken_));
        return server.BrokenSessions();
    });
    EXPECT_THAT(broken, IsEmpty()) << "one of another client, one in order, one still there";
    EXPECT_EQ(ToHex(halfway.Read(64)), ToHex(AnswerFrame(1, 3, {}, kEcho)));
}

}  // namespace
}  // namespace zam_platform::testing
