#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "steps/stepping_server.h"
#include "support/memory_peer.h"
#include "support/scoped_environment.h"
#include "vd/service_locator.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// A process that forks while its calls go through memory.
class HotFork : public ::testing::Test {
protected:
    void SetUp() override {
        VdZorTransport_Init(&transport_, ServiceLocatorConnect(kTestService), 0, 0);
        ASSERT_NE(transport_.handle, VD_ZOR_INVALID_HANDLE);
        stage_.PollFor(kPollsForEver);
        ASSERT_TRUE(Makes());
        ASSERT_TRUE(MakesThroughMemory());
    }

    bool Makes(std::uint64_t value = 1) {
        TestCall call(kCustom, value);
        return call.On(transport_) == kStatusOk && call.Value() == value + 1;
    }

    bool MakesThroughMemory() {
        const std::uint32_t before = stage_.Count(Step::ClientAsks);
        return Makes() && stage_.Count(Step::ClientAsks) == before + 1;
    }

    /// Forks; gives the child's exit status.
    template <typename Function>
    static int StatusOf(Function inChild) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::_exit(inChild());
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// The parent's connection is its own still, and is the one that it had.
    void ExpectParentGoesOn() {
        EXPECT_TRUE(MakesThroughMemory());
        Await("the child's end", [this] { return server_->Connections() == 1; });
        EXPECT_TRUE(MakesThroughMemory());
        EXPECT_TRUE(server_->BrokenSessions().empty());
        EXPECT_TRUE(logger_.Records().empty());
    }

    zam_connector::testing::RecordingLogger logger_;
    Stage& stage_ = Stage::Get();
    SteppingServer server_;
    zam_test::ScopedEnvironment runtime_{"ZAM_RUNTIME_DIR", server_->Directory()};
    VdZorTransport transport_{};
};

TEST_F(HotFork, GivesTheChildMemoryOfItsOwnWhenItCallsAtOnce) {
    EXPECT_EQ(
        StatusOf([this] {
            const std::size_t before = SharedMappings();
            return before == 0 && Makes() && MakesThroughMemory() && SharedMappings() == 2 ? 0 : 1;
        }),
        0);
    ExpectParentGoesOn();
}

TEST_F(HotFork, LeavesTheParentAloneWhoseChildEndsOrBecomesAnotherProgram) {
    EXPECT_EQ(StatusOf([] { return 0; }), 0);
    ExpectParentGoesOn();
    EXPECT_EQ(StatusOf([] {
                  ::execl("/bin/true", "true", nullptr);
                  return 1;
              }),
              0);
    ExpectParentGoesOn();
}

TEST_F(HotFork, RunsTheEndOfAChildThatNeverCalled) {
    EXPECT_EQ(StatusOf([]() -> int {
                  // Objects of static duration end, and with them the link and its channels.
                  std::exit(0);
              }),
              0);
    ExpectParentGoesOn();
}

TEST_F(HotFork, GoesOnWithTheCallThatWasUnderWayAtEachStep) {
    stage_.WaitForEver(false);
    const std::initializer_list<Step> steps = {Step::ClientWrites, Step::ClientWaits,
                                               Step::ClientAsks, Step::ClientLooksWhoPolls,
                                               Step::ClientTakes};
    for (const Step step : steps) {
        SCOPED_TRACE(static_cast<int>(step));
        const std::uint64_t before = server_.Served();
        stage_.Go(Side::Client, Stage::BitOf(step));
        {
            const Background call([this] { EXPECT_TRUE(Makes(SteppingServer::kWatched)); });
            ASSERT_TRUE(AwaitSoon("the call", [this] { return stage_.IsHeld(Side::Client); }));
            // A new connection's first call goes by the socket, past the step.
            EXPECT_EQ(StatusOf([this] { return SharedMappings() == 0 && Makes() ? 0 : 1; }), 0);
            stage_.Go(Side::Client);
        }
        EXPECT_EQ(server_.Served() - before, 1U);
        ExpectParentGoesOn();
    }
}

}  // namespace
}  // namespace zam_platform::testing
