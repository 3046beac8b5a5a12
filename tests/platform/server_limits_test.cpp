#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <vector>

#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

const Bytes& QuotaRefusal() {
    static const Bytes frame = StatusFrame(FrameKind::Refusal, 0, kStatusQuota);
    return frame;
}

class ServerLimitsTest : public ::testing::Test {
protected:
    std::string LastRecord() const {
        const auto records = logger_.Records();
        return records.empty() ? "" : records.back().text;
    }

    static bool Serves(const RawSocket& client) {
        client.Send(LookupFrame(kTestEndpoint));
        return client.ReadFrame().prelude.kind == FrameKind::LookupAnswer;
    }

    const std::string user_ = std::to_string(::geteuid());
    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(ServerLimitsTest, BoundTheConnectionsOfAUser) {
    TestServer server({.connectionsPerUser = 3});
    for (int round = 0; round < 3; ++round) {
        std::vector<RawSocket> clients;
        for (int index = 0; index < 3; ++index) {
            clients.push_back(server.Greet());
            ASSERT_TRUE(Serves(clients.back())) << round;
        }
        const RawSocket fourth = server.Connect();
        EXPECT_EQ(ToHex(fourth.ReadToEnd()), ToHex(QuotaRefusal()));
        EXPECT_EQ(LastRecord(),
                  "user " + user_ + " has 3 connections, the most allowed: connection closed");
        EXPECT_TRUE(Serves(clients[0])) << "the others are not touched";
        clients.clear();
        Await("the end of all", [&] { return server.Connections() == 0; });
    }
}

TEST_F(ServerLimitsTest, BoundTheSessionsOfAUser) {
    TestServer server({.sessionsPerUser = 2});
    const RawSocket first = server.Greet(1);
    ASSERT_TRUE(Serves(first));
    const RawSocket second = server.Greet(2);
    ASSERT_TRUE(Serves(second));
    const RawSocket third = server.Greet(3);
    EXPECT_EQ(ToHex(third.ReadToEnd()), ToHex(QuotaRefusal()));
    EXPECT_EQ(LastRecord(), "client of user " + user_ + ": user " + user_ +
                                " has 2 sessions, the most allowed: connection closed");
    const RawSocket more = server.Greet(1);
    EXPECT_TRUE(Serves(more)) << "of a session that is there";
}

TEST_F(ServerLimitsTest, TellTheClientOfAUserWithTooManyConnections) {
    TestServer server({.connectionsPerUser = 1});
    const auto first = LinkTo(server);
    const auto second = LinkTo(server);
    EXPECT_EQ(TestCall(kEcho).On(*first), kStatusOk);
    EXPECT_EQ(TestCall(kEcho).On(*second), kStatusQuota);
    EXPECT_EQ(TestCall(kEcho).On(*first), kStatusOk);
}

TEST_F(ServerLimitsTest, BoundTheBytesOfHalfReceivedFrames) {
    TestServer server({.bufferedBytesPerUser = 10000});
    for (int round = 0; round < 3; ++round) {
        {
            const Bytes call = CallFrame(1, kEcho, 3, Pattern(6000));
            const RawSocket first = server.Greet();
            first.Send(Head(call, 100));
            first.AwaitTaken();
            server.Connections();  // the loop has handled what came before
            const RawSocket second = server.Greet();
            second.Send(Head(call, 100));
            EXPECT_EQ(ToHex(second.ReadToEnd()), ToHex(QuotaRefusal()));
            EXPECT_EQ(LastRecord(),
                      "client of user " + user_ + ": user " + user_ +
                          " has 6064 bytes of half-received frames: connection closed");

            // What one has left over another can have.
            first.Send(Tail(call, 100));
            EXPECT_EQ(first.ReadFrame().arena, Pattern(6000));
            const RawSocket third = server.Greet();
            third.Send(Head(call, 100));
            third.AwaitTaken();
            third.Send(Tail(call, 100));
            EXPECT_EQ(third.ReadFrame().arena, Pattern(6000));
            // And so it is with what was never finished.
            third.Send(Head(call, 100));
            third.AwaitTaken();
        }
        Await("the end of all", [&] { return server.Connections() == 0; });
    }
}

TEST_F(ServerLimitsTest, BoundTheBytesThatAClientDoesNotTake) {
    TestServer server({.queuedBytesPerUser = 600000});
    for (int round = 0; round < 3; ++round) {
        const RawSocket silent = server.Greet();
        silent.Send(CallFrame(1, kFill, 1 << 20));
        Await("the answer's beginning", [&] { return silent.HasInput(); });
        Await("the end of the connection", [&] { return server.Connections() == 0; });
        EXPECT_EQ(LastRecord(), "user " + user_ +
                                    " has 0 bytes of answers that its clients do not take: "
                                    "connection closed");
        EXPECT_LT(silent.ReadToEnd().size(), std::size_t{1} << 20);
    }
}

TEST_F(ServerLimitsTest, CountTheQueuesOfAllConnectionsOfAUser) {
    TestServer server({.queuedBytesPerUser = 1500000});
    for (int round = 0; round < 3; ++round) {
        {
            const RawSocket first = server.Greet();
            first.Send(CallFrame(1, kFill, 1 << 20));
            Await("the first answer", [&] { return first.HasInput(); });
            server.Connections();  // the loop has queued what the socket did not take
            const RawSocket second = server.Greet();
            second.Send(CallFrame(1, kFill, 1 << 20));
            // Whoever reads at once may take it all while it is being written.
            Await("the end of the second", [&] { return server.Connections() == 1; });
            EXPECT_LT(second.ReadToEnd().size(), std::size_t{1} << 20);
            EXPECT_NE(LastRecord().find(" bytes of answers that its clients do not take"),
                      std::string::npos);

            // The first has its answer to the last byte, and makes room for the second.
            EXPECT_TRUE(first.ReadFrame().arena == Pattern(1 << 20));
            const RawSocket third = server.Greet();
            third.Send(CallFrame(1, kFill, 1 << 20));
            EXPECT_TRUE(third.ReadFrame().arena == Pattern(1 << 20));
            // Left with a full queue: that one is given back with the connection.
            third.Send(CallFrame(2, kFill, 1 << 20));
            Await("the third answer", [&] { return third.HasInput(); });
        }
        Await("the end of all", [&] { return server.Connections() == 0; });
    }
}

TEST_F(ServerLimitsTest, DoNotBindUsersToOneAnother) {
    // Users are told apart by their credentials, so another user's quota is its own.
    TestServer server({.connectionsPerUser = 1}, {.ownUser = 1000, .group = {}});
    static std::atomic<uid_t> g_user;
    g_user = 1000;
    const auto before = SetPeerCredentialsFunction(
        [](int, bool) { return PeerCredentials{.user = g_user, .group = 1, .groups = {}}; });
    const RawSocket own = server.Greet(1);
    EXPECT_TRUE(Serves(own));
    g_user = 0;
    const RawSocket root = server.Greet(2);
    EXPECT_TRUE(Serves(root));
    const RawSocket more = server.Connect();
    EXPECT_EQ(ToHex(more.ReadToEnd()), ToHex(QuotaRefusal()));
    SetPeerCredentialsFunction(before);
}

}  // namespace
}  // namespace zam_platform::testing
