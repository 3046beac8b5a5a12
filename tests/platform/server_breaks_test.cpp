#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
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

/// The call that was lost: that of `operation` and `value`, or none that could be told.
void ExpectLost(const TestServer& server, std::uint16_t operation,
                std::optional<std::uint64_t> value) {
    ASSERT_EQ(server.LostCalls().size(), 1U);
    const LostCall lost = server.LostCalls().front();
    ASSERT_EQ(lost.kind, LostCall::Kind::Call);
    EXPECT_EQ(lost.endpoint->riid, kTestRiid);
    EXPECT_EQ(lost.operation, operation);
    EXPECT_EQ(lost.FirstField<std::uint64_t>(), value);
}

TEST_F(ServerBreaks, TellTheCallThatCameInPartAsFarAsItCame) {
    const Bytes call = CallFrame(1, kEcho, 3, Pattern(1200));
    struct Row {
        std::size_t cut;
        bool isKnown;
        std::optional<std::uint64_t> value;
    };
    const Row rows[] = {{1, false, {}}, {55, false, {}}, {56, true, {}},
                        {63, true, {}}, {64, true, 3},   {1263, true, 3}};
    for (const auto& [cut, isKnown, value] : rows) {
        SCOPED_TRACE(cut);
        TestServer server;
        RawSocket client = Greet(server);
        client.Send(Head(call, cut));
        client.Close();
        AwaitBreak(server);
        if (isKnown) {
            ExpectLost(server, kEcho, value);
        } else {
            EXPECT_EQ(server.LostCalls().at(0).kind, LostCall::Kind::Unknown);
        }
    }
}

TEST_F(ServerBreaks, TellTheCallThatWasNotAnswered) {
    TestServer server;
    RawSocket client = Greet(server);
    client.Send(CallFrame(1, kEcho, 5));
    client.ReadFrame();
    client.Send(CallFrame(2, kHold, 6));
    server.Endpoint().AwaitHeld(1);
    client.Close();
    AwaitBreak(server);
    ExpectLost(server, kHold, 6);
    server.Endpoint().ReleaseAll();
}

TEST_F(ServerBreaks, TellTheCallWhoseAnswerWasNotTaken) {
    for (const bool isHalfTaken : {false, true}) {
        TestServer server;
        RawSocket client = Greet(server);
        client.Send(CallFrame(1, kFill, 1U << 20U));
        Await("the answer", [&client] { return client.HasInput(); });
        if (isHalfTaken) {
            client.Read(5000);
        }
        client.Close();
        AwaitBreak(server);
        ExpectLost(server, kFill, 1U << 20U);
    }
}

TEST_F(ServerBreaks, TellTheCallThatIsStillUnread) {
    TestServer server;
    RawSocket client = Greet(server);
    server.OnLoop([&] {
        client.Send(CallFrame(1, kEcho, 8));
        client.Close();
        server.Get().NoticeBroken(TokenOf(lastToken_));
        return 0;
    });
    ExpectLost(server, kEcho, 8);
}

TEST_F(ServerBreaks, TellTheCallThatItsHandlerDrops) {
    TestServer server;
    const RawSocket client = Greet(server);
    client.Send(CallFrame(1, kDrop, 9));
    AwaitBreak(server);
    ExpectLost(server, kDrop, 9);
}

TEST_F(ServerBreaks, TellNoCallWhenARuleIsBroken) {
    TestServer server;
    const RawSocket client = Greet(server);
    client.Send(CallFrame(1, kEcho, 9));
    client.ReadFrame();
    client.Send(Bytes(32));
    AwaitBreak(server);
    EXPECT_EQ(server.LostCalls().at(0).kind, LostCall::Kind::Unknown);
}

TEST_F(ServerBreaks, TellThatALookupIsNoCall) {
    const Bytes lookup = LookupFrame("a name", 2);
    const auto expectNone = [](const TestServer& server) {
        ASSERT_EQ(server.LostCalls().size(), 1U);
        EXPECT_EQ(server.LostCalls().front().kind, LostCall::Kind::None);
    };
    {
        TestServer server;
        RawSocket client = Greet(server);
        client.Send(Head(lookup, kPreludeBytes + 1));
        client.Close();
        AwaitBreak(server);
        expectNone(server);
    }
    {
        TestServer server;
        RawSocket client = Greet(server);
        client.Send(CallFrame(1, kEcho, 1));
        client.ReadFrame();
        client.Send(lookup);
        Await("the answer", [&client] { return client.HasInput(); });
        client.Close();
        AwaitBreak(server);
        expectNone(server);
    }
}

/// The connection of a call that is being handled is looked at too. Its buffer still holds what
/// came before the call.
TEST_F(ServerBreaks, TellTheCallThatIsBeingHandled) {
    TestServer server;
    server.Endpoint().Custom([&server](const Request& request, const Responder&) {
        server.Get().NoticeBroken(request.client.token);
    });
    server.OnLoop([&server] {
        RawSocket client = server.Connect();
        client.Send(HelloFrame(kOther) + CallFrame(1, kCustom, 11));
        client.Close();
        return 0;
    });
    AwaitBreak(server);
    ExpectLost(server, kCustom, 11);
}

TEST_F(ServerBreaks, TellTheCallWhoseRestDidNotCome) {
    TestServer server({.frameTimeout = milliseconds(20)});
    const RawSocket client = Greet(server);
    client.Send(Head(CallFrame(1, kEcho, 12, Pattern(100)), 100));
    AwaitBreak(server);
    ExpectLost(server, kEcho, 12);
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
