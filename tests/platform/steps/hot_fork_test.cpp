#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <optional>

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
            ::alarm(static_cast<unsigned>(kBound.count()));
            PassBy();
            ::_exit(inChild());
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// It has none of the parent's pages, so that a touch would end it, and comes to its own.
    void ExpectChildMakesCalls() {
        EXPECT_EQ(StatusOf([this] {
                      return SharedMappings() == 0 && Makes() && MakesThroughMemory() &&
                                     SharedMappings() == 2
                                 ? 0
                                 : 1;
                  }),
                  0);
    }

    bool IsHeldAt(Step step) {
        return AwaitSoon("the call", [this] { return stage_.IsHeld(Side::Client); }) &&
               stage_.HeldAt(Side::Client) == step;
    }

    /// Has the service stop before its next look, while it polls.
    void HoldService() {
        stage_.Go(Side::Service, Stage::BitOf(Step::ServiceLooks));
        ASSERT_TRUE(AwaitSoon("a look", [this] { return stage_.IsHeld(Side::Service); }));
    }

    /// Makes a call, and forks when it has come to the second step. The service does its part when
    /// it stands at the first one.
    template <typename Function>
    void ForkWithin(Step first, Step second, Function meanwhile) {
        SCOPED_TRACE(static_cast<int>(second));
        const std::uint64_t before = server_.Served();
        stage_.Go(Side::Client, Stage::BitOf(first));
        {
            const Background call([this] { EXPECT_TRUE(Makes(SteppingServer::kWatched)); });
            EXPECT_TRUE(IsHeldAt(first));
            meanwhile();
            if (second != first) {
                stage_.Go(Side::Client, Stage::BitOf(second));
                EXPECT_TRUE(IsHeldAt(second));
            }
            ExpectChildMakesCalls();
            stage_.Go(Side::Client);
        }
        EXPECT_EQ(server_.Served() - before, 1U);
        ExpectParentGoesOn();
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
    ExpectChildMakesCalls();
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

TEST_F(HotFork, GoesOnWithTheCallThatWasUnderWayAtEachStepUpToItsAnswer) {
    stage_.WaitForEver(false);
    for (const Step step : {Step::ClientWrites, Step::ClientWaits, Step::ClientAsks,
                            Step::ClientLooksWhoPolls, Step::ClientLooks, Step::ClientTakes}) {
        ForkWithin(step, step, [] {});
    }
}

TEST_F(HotFork, GoesOnWithTheCallThatLooksNoMoreForItsAnswer) {
    stage_.WaitForEver(false);
    for (const Step step : {Step::ClientStopsWaiting, Step::ClientLooksAgain, Step::ClientSleeps}) {
        HoldService();  // or the answer is there before
        ForkWithin(step, step, [this] { stage_.Go(Side::Service); });
    }
}

TEST_F(HotFork, GoesOnWithTheCallThatFoundItsAnswerByTheLastLook) {
    stage_.WaitForEver(false);
    HoldService();
    ForkWithin(Step::ClientLooksAgain, Step::ClientTellsThatItHas, [this] {
        stage_.Go(Side::Service);
        EXPECT_TRUE(server_.ComesToRest());
    });
}

TEST_F(HotFork, GoesOnWithTheCallWhoseServiceLooksNoMore) {
    stage_.PollFor(kPollsOnce);
    stage_.Go(Side::Service, Stage::BitOf(Step::ServiceTells));
    ASSERT_TRUE(Makes());
    ASSERT_TRUE(AwaitSoon("its last word", [this] { return stage_.IsHeld(Side::Service); }));
    ForkWithin(Step::ClientWrites, Step::ClientRings, [this] {
        EXPECT_FALSE(server_.GoTo(std::nullopt));
        stage_.PollFor(kPollsForEver);
    });
}

TEST_F(HotFork, GoesOnBehindTheCallWhoseConnectionHasEnded) {
    stage_.WaitForEver(false);
    stage_.Go(Side::Client, Stage::BitOf(Step::ClientJudgesEnd));
    {
        const Background call([this] { EXPECT_EQ(TestCall(kDrop).On(transport_), kStatusBroken); });
        EXPECT_TRUE(IsHeldAt(Step::ClientJudgesEnd));
        ExpectChildMakesCalls();
        stage_.Go(Side::Client);
    }
    EXPECT_EQ(server_->LostCalls().size(), 1U);
    ASSERT_TRUE(Makes());
    EXPECT_TRUE(MakesThroughMemory());
    Await("the child's end", [this] { return server_->Connections() == 1; });
}

}  // namespace
}  // namespace zam_platform::testing
