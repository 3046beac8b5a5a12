#include <gtest/gtest.h>
#include <unistd.h>

#include <asio/post.hpp>
#include <future>
#include <memory>
#include <vector>

#include "support/descriptors.h"
#include "support/temporary_folder.h"
#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;
using zam_test::TemporaryFolder;

class ServerLifetime : public ::testing::Test {
protected:
    /// A server that no thread runs.
    std::unique_ptr<Server> MakeIdle() {
        auto server = std::make_unique<Server>(std::vector{endpoint_.Rule()}, TestServer::OwnUser(),
                                               ServerLimits{});
        socket_ = std::make_unique<ListeningSocket>(directory_, kTestService, false);
        server->Accept(socket_->Release());
        return server;
    }

    RawSocket Connect() const { return ConnectRaw(temp_.Path(SocketName(kTestService))); }

    zam_connector::testing::RecordingLogger logger_;
    TemporaryFolder temp_;
    RuntimeDirectory directory_{temp_.Path()};
    TestEndpoint endpoint_;
    std::unique_ptr<ListeningSocket> socket_;
};

TEST_F(ServerLifetime, EndsBeforeItHasRun) {
    auto server = MakeIdle();
    std::vector<RawSocket> clients;
    for (int index = 0; index < 5; ++index) {
        clients.push_back(Connect());
        clients.back().Send(HelloFrame() + CallFrame(1, kEcho, 1));
    }
    server.reset();
    socket_.reset();
    for (const RawSocket& client : clients) {
        EXPECT_TRUE(client.EndsNow());
    }
    EXPECT_TRUE(endpoint_.Calls().empty());
}

TEST_F(ServerLifetime, EndsWithConnectionsThatWaitToBeAccepted) {
    // The first accept succeeds at once, so its completion waits in a loop that never runs.
    const RuntimeDirectory directory(temp_.Path());
    const RawListener listener(temp_.Path("early.sock"));
    const RawSocket early = ConnectRaw(temp_.Path("early.sock"));
    early.Send(HelloFrame() + CallFrame(1, kHold, 1));
    auto server = std::make_unique<Server>(std::vector{endpoint_.Rule()}, TestServer::OwnUser(),
                                           ServerLimits{});
    server->Accept(::dup(listener.Get()));
    server.reset();
    EXPECT_TRUE(endpoint_.Calls().empty());
}

TEST_F(ServerLifetime, HeedsAStopThatComesBeforeItRuns) {
    const auto server = MakeIdle();
    server->Stop();
    server->Run();
    EXPECT_EQ(server->ConnectionCount(), 0U);
}

TEST_F(ServerLifetime, ServesEndpointsThatItWasGivenLater) {
    Server server({}, TestServer::OwnUser(), {});
    server.Serve(endpoint_.Rule());
    const RawListener listener(temp_.Path("later.sock"));
    server.Accept(::dup(listener.Get()));
    const Background loop([&server] { server.Run(); });
    const RawSocket client = ConnectRaw(temp_.Path("later.sock"));
    client.Send(HelloFrame() + CallFrame(1, kEcho, 6));
    EXPECT_EQ(ToHex(client.Read(64)), ToHex(AnswerFrame(1, 6, {}, kEcho)));
    server.Stop();
}

TEST_F(ServerLifetime, StopsFromWithinACall) {
    const auto server = MakeIdle();
    endpoint_.Custom([&server](const Request&, Responder responder) {
        server->Stop();
        responder.Fail(55);
    });
    const Background loop([&server] { server->Run(); });
    const RawSocket client = Connect();
    client.Send(HelloFrame() + CallFrame(1, kCustom, 1));
    EXPECT_EQ(ToHex(client.Read(32)), ToHex(StatusFrame(FrameKind::Answer, 1, 55)));
}

TEST_F(ServerLifetime, CallsNoHandlerOnceItIsBeingDestroyed) {
    auto server = MakeIdle();
    Background loop([&server] { server->Run(); });
    const RawSocket first = Connect();
    const RawSocket second = Connect();
    for (const RawSocket* const client : {&first, &second}) {
        client->Send(HelloFrame() + LookupFrame("x"));
        client->ReadFrame();
    }
    endpoint_.Custom([&server](const Request&, Responder responder) {
        server->Stop();
        responder.Fail(55);
    });
    // The loop finds both calls at once, and whichever it takes first stops it.
    std::promise<void> sent;
    asio::post(server->Context(), [&sent] { sent.get_future().wait_for(kBound); });
    first.Send(CallFrame(2, kCustom, 1));
    second.Send(CallFrame(2, kCustom, 2));
    sent.set_value();
    loop.Join();
    EXPECT_EQ(endpoint_.Calls().size(), 1U);
    server.reset();
    EXPECT_EQ(endpoint_.Calls().size(), 1U) << "the other was handed on by the destructor";
    const Bytes answers = first.ReadToEnd() + second.ReadToEnd();
    EXPECT_EQ(ToHex(answers), ToHex(StatusFrame(FrameKind::Answer, 2, 55)));
}

TEST_F(ServerLifetime, EndsWithClientsAndCallsInEveryState) {
    const std::set<int> before = OpenDescriptors();
    for (int round = 0; round < 5; ++round) {
        auto server = std::make_unique<TestServer>();
        const RawSocket connected = server->Connect();
        const RawSocket greeted = server->Greet();
        const RawSocket halfway = server->Greet();
        halfway.Send(Head(CallFrame(1, kEcho, 1, Pattern(9000)), 5000));
        const RawSocket silent = server->Greet();
        silent.Send(CallFrame(1, kFill, 1 << 20));
        Await("the answer's beginning", [&] { return silent.HasInput(); });
        const RawSocket waiting = server->Greet();
        waiting.Send(CallFrame(1, kHold, 1));
        server->Endpoint().AwaitHeld(1);
        Background blocked([&] {
            const auto link = LinkTo(*server);
            EXPECT_EQ(TestCall(kHold, 1).On(*link), kStatusBroken);
        });
        server->Endpoint().AwaitHeld(2);

        server.reset();
        blocked.Join();
        for (const RawSocket* const client : {&connected, &greeted, &halfway, &waiting}) {
            EXPECT_TRUE(client->EndsNow());
        }
        EXPECT_LT(silent.ReadToEnd().size(), std::size_t{1} << 20);
    }
    EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
}

TEST_F(ServerLifetime, EndsWithAnswersUnderWayFromOtherThreads) {
    for (int round = 0; round < 50; ++round) {
        TestServer server;
        const RawSocket client = server.Greet();
        client.Send(CallFrame(1, kHold, 1));
        server.Endpoint().AwaitHeld(1);
        Background worker([&server] { server.Endpoint().ReleaseAll(); });
        server.Stop();
        worker.Join();
        server.Destroy();
        // The answer came before the end, or it did not.
        const Bytes answer = client.ReadToEnd();
        EXPECT_TRUE(answer.empty() || answer == AnswerFrame(1, 1, {}, kHold));
    }
}

TEST(ServerSessions, EndAGraceAfterTheirLastConnection) {
    TestServer server({.sessionGrace = milliseconds(20)});
    RawSocket first = server.Greet(0x41);
    RawSocket second = server.Greet(0x41);
    for (const RawSocket* const client : {&first, &second}) {
        client->Send(LookupFrame("x"));
        client->ReadFrame();
    }
    const auto start = std::chrono::steady_clock::now();
    first.Close();
    Await("one connection's end", [&] { return server.Connections() == 1; });
    EXPECT_TRUE(server.EndedSessions().empty());
    second.Close();
    Await("the session's end", [&] { return !server.EndedSessions().empty(); });
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(20));
    SessionToken token;
    token.fill(0x41);
    EXPECT_EQ(server.EndedSessions(), std::vector{token});
}

TEST(ServerSessions, GoOnWhenTheClientIsBackWithinTheGrace) {
    TestServer server({.sessionGrace = milliseconds(500)});
    for (int round = 0; round < 3; ++round) {
        const RawSocket client = server.Greet(0x42);
        client.Send(LookupFrame("x"));
        client.ReadFrame();
        EXPECT_TRUE(server.EndedSessions().empty());
    }
    RawSocket kept = server.Greet(0x42);
    kept.Send(LookupFrame("x"));
    kept.ReadFrame();
    RawSocket other = server.Greet(0x43);
    other.Send(LookupFrame("x"));
    other.ReadFrame();
    other.Close();
    Await("the other session's end", [&] { return !server.EndedSessions().empty(); });
    SessionToken token;
    token.fill(0x43);
    EXPECT_EQ(server.EndedSessions(), std::vector{token});
}

TEST(ServerSessions, AreNotBegunByConnectionsThatDoNotGreet) {
    TestServer server({.sessionGrace = milliseconds(1)});
    server.Connect().Close();
    RawSocket greeted = server.Greet(0x44);
    greeted.Send(LookupFrame("x"));
    greeted.ReadFrame();
    greeted.Close();
    Await("the session's end", [&] { return !server.EndedSessions().empty(); });
    EXPECT_EQ(server.EndedSessions().size(), 1U);
}

}  // namespace
}  // namespace zam_platform::testing
