#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <random>
#include <vector>

#include "support/other_user.h"
#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_platform/peer_credentials.h"

namespace zam_platform::testing {
namespace {

using ::testing::IsEmpty;

constexpr std::size_t kBusyConnections = 200;
/// A look follows upon 32 short calls.
constexpr std::size_t kLongestWait = 48;
constexpr unsigned char kBusyToken = 0x22;
constexpr unsigned char kQuietToken = 0x11;
constexpr std::uint64_t kQuietValue = 7;

std::atomic<uid_t> g_connecting;  ///< whose the next connection is

PeerCredentials WhoConnects(int /*socket*/, bool /*withGroups*/) {
    return {.user = g_connecting, .group = 0, .groups = {}};
}

/// A user with many connections, of which all become ready at once, and root with a few.
class QuietUsersTest : public ::testing::Test {
protected:
    QuietUsersTest() {
        for (std::size_t number = 0; number < kBusyConnections; ++number) {
            busy_.push_back(ConnectAs(zam_test::kSomebodyElse, kBusyToken));
        }
    }

    ~QuietUsersTest() override {
        server_.Destroy();
        SetPeerCredentialsFunction(before_);
    }

    RawSocket ConnectAs(uid_t user, unsigned char token) {
        g_connecting = user;
        RawSocket client = server_.Greet(token);
        client.Send(LookupFrame(kTestEndpoint));
        client.ReadFrame();
        return client;
    }

    /// Has the loop find calls on all of the busy user's connections, and behind them what
    /// `quiet` does.
    template <typename Function>
    void BehindTheBusy(Function quiet) {
        server_.OnLoop([this, &quiet] {
            for (const RawSocket& client : busy_) {
                client.Send(CallFrame(1, kEcho, 1000));
            }
            quiet();
            return 0;
        });
    }

    void AwaitBusy() {
        for (const RawSocket& client : busy_) {
            EXPECT_EQ(client.ReadFrame().prelude.kind, FrameKind::Answer);
        }
    }

    /// How many calls were served before the quiet user's first.
    std::size_t ServedBefore() const {
        const std::vector<TestMessage> calls = server_.Endpoint().Calls();
        const auto found = std::find_if(calls.begin(), calls.end(), [](const TestMessage& call) {
            return call.value == kQuietValue;
        });
        return static_cast<std::size_t>(found - calls.begin());
    }

    std::size_t QuietCalls() const {
        const std::vector<TestMessage> calls = server_.Endpoint().Calls();
        return static_cast<std::size_t>(
            std::count_if(calls.begin(), calls.end(),
                          [](const TestMessage& call) { return call.value == kQuietValue; }));
    }

    zam_connector::testing::RecordingLogger logger_;
    const PeerCredentialsFunction before_ = SetPeerCredentialsFunction(&WhoConnects);
    mutable TestServer server_{{}, {.ownUser = zam_test::kSomebodyElse, .group = {}}};
    std::vector<RawSocket> busy_;
};

TEST_F(QuietUsersTest, AreServedBeforeTheRestOfABusyUsersCalls) {
    const RawSocket quiet = ConnectAs(0, kQuietToken);
    const RawSocket second = ConnectAs(0, kQuietToken + 1);
    BehindTheBusy([&] {
        second.Send(LookupFrame("x"));
        quiet.Send(CallFrame(1, kEcho, kQuietValue));
    });
    EXPECT_EQ(ToHex(quiet.Read(64)), ToHex(AnswerFrame(1, kQuietValue)));
    EXPECT_EQ(second.ReadFrame().prelude.kind, FrameKind::LookupAnswer);
    AwaitBusy();
    EXPECT_LT(ServedBefore(), kLongestWait);
    EXPECT_EQ(QuietCalls(), 1U);
}

TEST_F(QuietUsersTest, AreServedEarlyCallByCall) {
    const RawSocket quiet = ConnectAs(0, kQuietToken);
    for (std::uint64_t number = 1; number <= 3; ++number) {
        const std::size_t before = server_.Endpoint().Calls().size();
        BehindTheBusy([&] { quiet.Send(CallFrame(number, kEcho, number)); });
        EXPECT_EQ(ToHex(quiet.Read(64)), ToHex(AnswerFrame(number, number)));
        AwaitBusy();
        const std::vector<TestMessage> calls = server_.Endpoint().Calls();
        EXPECT_NE(calls.back().value, number);
        EXPECT_EQ(calls.size(), before + kBusyConnections + 1);
    }
}

TEST_F(QuietUsersTest, KeepTheirTurnWithPartOfAFrame) {
    const Bytes call = CallFrame(1, kEcho, kQuietValue);
    const RawSocket quiet = ConnectAs(0, kQuietToken);
    std::size_t answered = 0;
    for (const std::size_t cut : {1U, 31U, 32U, 60U, 63U}) {
        BehindTheBusy([&] { quiet.Send(Head(call, cut)); });
        AwaitBusy();
        EXPECT_EQ(QuietCalls(), answered);
        quiet.Send(Tail(call, cut));
        EXPECT_EQ(ToHex(quiet.Read(64)), ToHex(AnswerFrame(1, kQuietValue)));
        EXPECT_EQ(QuietCalls(), ++answered) << cut << " bytes first";
    }
}

TEST_F(QuietUsersTest, KeepTheirTurnWithSeveralFramesAtOnce) {
    const RawSocket quiet = ConnectAs(0, kQuietToken);
    BehindTheBusy([&] {
        quiet.Send(LookupFrame("x", 5) + CallFrame(6, kEcho, kQuietValue) +
                   Head(LookupFrame("x", 7), 20));
    });
    AwaitBusy();
    EXPECT_EQ(quiet.ReadFrame().prelude.callNumber, 5U);
    EXPECT_EQ(quiet.ReadFrame().prelude.callNumber, 6U);
    EXPECT_EQ(ServedBefore(), kBusyConnections);
    quiet.Send(Tail(LookupFrame("x", 7), 20));
    EXPECT_EQ(quiet.ReadFrame().prelude.callNumber, 7U);
}

TEST_F(QuietUsersTest, KeepTheirTurnWithALargeFrame) {
    const RawSocket quiet = ConnectAs(0, kQuietToken);
    const Bytes arena = Pattern(5000);
    BehindTheBusy([&] { quiet.Send(CallFrame(1, kEcho, kQuietValue, arena)); });
    AwaitBusy();
    EXPECT_EQ(ToHex(quiet.Read(64 + arena.size())), ToHex(AnswerFrame(1, kQuietValue, arena)));
    EXPECT_EQ(QuietCalls(), 1U);
}

TEST_F(QuietUsersTest, KeepTheirTurnWithACallThatTheyDoNotWaitFor) {
    RawSocket quiet = ConnectAs(0, kQuietToken);
    BehindTheBusy([&] {
        quiet.Send(CallFrame(1, kEcho, kQuietValue));
        quiet.Close();
    });
    AwaitBusy();
    Await("the connection's end", [this] { return server_.Connections() == kBusyConnections; });
    EXPECT_EQ(ServedBefore(), kBusyConnections);
    EXPECT_EQ(server_.BrokenSessions().size(), 1U);
}

TEST_F(QuietUsersTest, KeepTheirTurnBehindAConnectionThatTheyGaveUp) {
    RawSocket waiting = ConnectAs(0, kQuietToken);
    waiting.Send(CallFrame(1, kHold, 1));
    server_.Endpoint().AwaitHeld(1);
    const RawSocket quiet = ConnectAs(0, kQuietToken);
    std::atomic<std::size_t> brokenBefore{0};
    server_.Endpoint().Custom([&](const Request& /*request*/, Responder responder) {
        brokenBefore = server_.BrokenSessions().size();
        responder.Fail(5);
    });
    BehindTheBusy([&] {
        waiting.Close();
        quiet.Send(CallFrame(2, kCustom, kQuietValue));
    });
    EXPECT_EQ(quiet.ReadFrame().prelude.status, 5);
    AwaitBusy();
    EXPECT_EQ(brokenBefore, 1U);
    server_.Endpoint().ReleaseAll();
}

TEST_F(QuietUsersTest, MayEndOneAnotherWhileTheyAreServed) {
    RawSocket ended = ConnectAs(0, kQuietToken + 1);
    const RawSocket quiet = ConnectAs(0, kQuietToken);
    server_.Endpoint().Custom([&](const Request& /*request*/, Responder responder) {
        ended.Close();
        SessionToken token;
        token.fill(kQuietToken + 1);
        server_.Get().NoticeBroken(token);
        responder.Fail(5);
    });
    BehindTheBusy([&] {
        ended.Send(CallFrame(1, kEcho, 99));
        quiet.Send(CallFrame(2, kCustom, kQuietValue));
    });
    EXPECT_EQ(quiet.ReadFrame().prelude.status, 5);
    AwaitBusy();
    EXPECT_LT(ServedBefore(), kLongestWait);
    EXPECT_EQ(server_.BrokenSessions().size(), 1U);
}

/// A write and a read of one connection that become possible together: the loop reads first and
/// tells of that later.
TEST_F(QuietUsersTest, AreNotOvertakenByThemselvesBehindAnAnswerThatWasHeldUp) {
    const RawSocket quiet = ConnectAs(0, kQuietToken);
    constexpr std::uint64_t kFilled = 300'000;  // more than a socket takes, less than twice that
    quiet.Send(CallFrame(1, kFill, kFilled));
    Await("the answer", [&quiet] { return quiet.HasInput(); });
    server_.OnLoop([] { return 0; });
    server_.Endpoint().Custom([&](const Request& /*request*/, Responder responder) {
        quiet.Send(LookupFrame("x", 3));
        responder.Fail(5);
    });
    server_.OnLoop([&] {
        quiet.Read(200'000);
        quiet.Send(LookupFrame("x", 2));
        busy_[0].Send(CallFrame(1, kCustom, 0));
        for (std::size_t number = 1; number < kBusyConnections; ++number) {
            busy_[number].Send(CallFrame(1, kEcho, 1000));
        }
        return 0;
    });
    quiet.Read(64 + kFilled - 200'000);
    EXPECT_EQ(quiet.ReadFrame().prelude.callNumber, 2U);
    EXPECT_EQ(quiet.ReadFrame().prelude.callNumber, 3U);
    AwaitBusy();
}

TEST_F(QuietUsersTest, AreAnsweredInOrderHoweverTheirFramesAreCut) {
    std::mt19937 random(20261122);
    const RawSocket quiet = ConnectAs(0, kQuietToken);
    Bytes unsent;
    std::uint64_t asked = 0;
    std::uint64_t answered = 0;
    for (int round = 0; round < 30; ++round) {
        BehindTheBusy([&] {
            for (std::uint64_t frame = random() % 40; frame != 0 || unsent.empty(); --frame) {
                unsent = unsent + LookupFrame("a name", ++asked);
                if (frame == 0) {
                    break;
                }
            }
            const std::size_t sent = random() % 2 == 0 ? unsent.size() : random() % unsent.size();
            quiet.Send(Head(unsent, sent));
            unsent = Tail(unsent, sent);
        });
        AwaitBusy();
    }
    quiet.Send(unsent);
    while (answered < asked) {
        ASSERT_EQ(quiet.ReadFrame().prelude.callNumber, ++answered);
    }
    EXPECT_THAT(server_.BrokenSessions(), IsEmpty());
}

}  // namespace
}  // namespace zam_platform::testing
