#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/scoped_environment.h"
#include "support/test_server.h"
#include "vd/service_locator.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using zam_test::ScopedEnvironment;

/// Runs a function in a forked child and waits for it; true when the child gave true.
template <typename Function>
bool TrueInChild(Function function) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(function() ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class Fork : public ::testing::Test {
protected:
    void SetUp() override {
        const std::uint32_t handle = ServiceLocatorConnect(kTestService);
        ASSERT_NE(handle, VD_ZOR_INVALID_HANDLE);
        VdZorTransport_Init(&transport_, handle, 0, 0);
    }

    bool Echoes(std::uint64_t value) {
        TestCall call(kEcho, value);
        return call.On(transport_) == kStatusOk && call.Value() == value;
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_{{.sessionGrace = std::chrono::milliseconds(20)}};
    ScopedEnvironment runtime_{"ZAM_RUNTIME_DIR", server_.Directory()};
    VdZorTransport transport_{};
};

TEST_F(Fork, MakesTheChildANewClientWithConnectionsOfItsOwn) {
    ASSERT_TRUE(Echoes(1));
    EXPECT_TRUE(TrueInChild([this] { return Echoes(2) && Echoes(3); }));
    EXPECT_TRUE(TrueInChild([this] { return Echoes(4); }));
    EXPECT_TRUE(Echoes(5));

    const auto calls = server_.Endpoint().Calls();
    const auto clients = server_.Endpoint().Clients();
    ASSERT_EQ(calls.size(), 5U);
    for (std::size_t index = 0; index < calls.size(); ++index) {
        EXPECT_EQ(calls[index].value, index + 1);
    }
    EXPECT_EQ(clients[1].token, clients[2].token) << "one child";
    EXPECT_NE(clients[1].token, clients[0].token);
    EXPECT_NE(clients[3].token, clients[0].token);
    EXPECT_NE(clients[3].token, clients[1].token) << "two children";
    EXPECT_EQ(clients[4].token, clients[0].token) << "the parent goes on as it was";
    // Its connection is not one that a child used, or closed.
    Await("the end of the children's connections", [this] { return server_.Connections() == 1; });
}

TEST_F(Fork, LeavesTheChildNoDescriptorOfTheParentsConnections) {
    ASSERT_TRUE(Echoes(1));
    EXPECT_TRUE(TrueInChild([this] {
        const std::set<int> before = OpenDescriptors();
        if (!Echoes(2)) {
            return false;
        }
        const std::set<int> made = NewSince(before);
        return made.size() == 1;
    }));
}

TEST_F(Fork, WorksWhileCallsAreInFlight) {
    Background blocked([this] { EXPECT_EQ(TestCall(kHold, 9).On(transport_), kStatusOk); });
    server_.Endpoint().AwaitHeld(1);
    EXPECT_TRUE(TrueInChild([this] { return Echoes(1) && Echoes(2); }));
    EXPECT_TRUE(Echoes(3));
    server_.Endpoint().ReleaseAll();
}

TEST_F(Fork, WorksBesideThreadsThatCall) {
    std::atomic<bool> done{false};
    const Background calling([this, &done] {
        for (std::uint64_t value = 0; !done; ++value) {
            ASSERT_TRUE(Echoes(value));
        }
    });
    for (int round = 0; round < 20; ++round) {
        EXPECT_TRUE(TrueInChild([this] { return Echoes(1); })) << round;
    }
    done = true;
}

TEST_F(Fork, WorksInAChildOfAChild) {
    ASSERT_TRUE(Echoes(1));
    EXPECT_TRUE(TrueInChild(
        [this] { return Echoes(2) && TrueInChild([this] { return Echoes(3); }) && Echoes(4); }));
    const auto clients = server_.Endpoint().Clients();
    ASSERT_EQ(clients.size(), 4U);
    EXPECT_EQ(clients[1].token, clients[3].token);
    EXPECT_NE(clients[1].token, clients[2].token);
}

TEST_F(Fork, LetsTheServerSeeTheParentsDeathWhileTheChildLives) {
    auto pair = MakePair();
    RawSocket& mine = pair.first;
    RawSocket& theirs = pair.second;
    const int childsEnd = theirs.Get();
    // A parent with connections in use and idle, and a child that lives on and does nothing.
    EXPECT_TRUE(TrueInChild([&] {
        if (!Echoes(1)) {
            return false;
        }
        if (::fork() == 0) {
            mine.Close();
            unsigned char byte = 1;
            static_cast<void>(::write(childsEnd, &byte, 1));
            // Ends with the test, which closes its end.
            static_cast<void>(::read(childsEnd, &byte, 1));
            ::_exit(0);
        }
        return true;
    }));
    theirs.Close();
    EXPECT_EQ(mine.Read(1), Bytes{1}) << "the child lives";
    Await("the end of the parent's session",
          [this] { return server_.EndedSessions().size() == 1; });
    EXPECT_EQ(server_.EndedSessions()[0], server_.Endpoint().Clients()[0].token);
    EXPECT_FALSE(mine.HasInput()) << "the child lives still";
    mine.EndSending();
    EXPECT_TRUE(mine.EndsNow());
}

}  // namespace
}  // namespace zam_platform::testing
