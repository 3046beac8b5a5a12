#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <asio/local/stream_protocol.hpp>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "server/server_connection.h"
#include "steps/stepping_server.h"
#include "support/require.h"
#include "support/shared_link.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// A forked process that takes its steps on the stage.
class SteppingProcess {
public:
    /// Runs `work`, whose result is the exit status.
    explicit SteppingProcess(const std::function<int()>& work) : process_(::fork()) {
        zam_test::Require(process_ >= 0, "fork");
        if (process_ == 0) {
            int status = 1;
            try {
                status = work();
            } catch (const std::exception&) {
                // The test misses what it should have done.
            }
            ::_exit(status);
        }
    }
    SteppingProcess(const SteppingProcess&) = delete;
    SteppingProcess& operator=(const SteppingProcess&) = delete;
    ~SteppingProcess() { Kill(); }

    /// SIGKILL, and waits for the end.
    void Kill() {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            Wait();
        }
    }

    /// SIGSTOP, and waits until it stands still.
    void Stop() const {
        ::kill(process_, SIGSTOP);
        int status = 0;
        EXPECT_EQ(::waitpid(process_, &status, WUNTRACED), process_);
        EXPECT_TRUE(WIFSTOPPED(status));
    }

    void GoOn() const { ::kill(process_, SIGCONT); }

    /// Waits for the end; its exit status.
    int Wait() {
        int status = -1;
        ::waitpid(process_, &status, 0);
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t process_;
};

/// A service with one connection, in a process of its own. `kCustom` as in `SteppingServer`.
class ServiceOfOne {
public:
    ServiceOfOne() : ServiceOfOne(MakePair()) {}

    UniqueFd TakeSocket() noexcept { return mine_.Release(); }
    SteppingProcess& Process() noexcept { return process_; }

    /// How often the watched value was served.
    std::uint32_t Served() const noexcept { return *served_; }

private:
    using Count = std::atomic<std::uint32_t>;

    class Handler final : public EndpointHandler {
    public:
        explicit Handler(Count& served) : served_(served) {}

        void OnCall(const Request& request, Responder responder) override {
            const auto value = request.As<TestMessage>().value;
            served_ += value == SteppingServer::kWatched ? 1U : 0U;
            TestMessage message{};
            message.value = value + 1;
            responder.Answer(message);
        }

    private:
        Count& served_;
    };

    struct Unmap {
        void operator()(Count* count) const noexcept { ::munmap(count, sizeof(Count)); }
    };

    explicit ServiceOfOne(std::pair<RawSocket, RawSocket> pair)
        : mine_(std::move(pair.first)), process_([this, &pair] {
              mine_.Close();
              return Run(pair.second.Release(), *served_);
          }) {
        pair.second.Close();
    }

    static Count* NewCount() {
        void* const address = ::mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE,
                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        zam_test::Require(address != MAP_FAILED, "mmap");
        return new (address) Count(0);
    }

    static int Run(UniqueFd socket, Count& served) {
        Become(Side::Service);
        Handler handler(served);
        EndpointRule rule = TestEndpoint().Rule();
        rule.handler = &handler;
        Server server({rule}, TestServer::OwnUser(), {.spinCap = std::chrono::microseconds(50)});
        ServerConnection::Socket accepted(server.Context(), asio::local::stream_protocol(),
                                          socket.Release());
        accepted.non_blocking(true);
        std::make_shared<ServerConnection>(server, std::move(accepted), ::geteuid())->Start();
        server.Run();
        return 1;
    }

    std::unique_ptr<Count, Unmap> served_{NewCount()};
    RawSocket mine_;
    SteppingProcess process_;
};

enum class Fate { Killed, StoppedAndKilled, Stopped };

constexpr Fate kFates[] = {Fate::Killed, Fate::StoppedAndKilled, Fate::Stopped};

std::string Told(Step step, Fate fate) {
    return "step " + std::to_string(static_cast<int>(step)) + ", fate " +
           std::to_string(static_cast<int>(fate));
}

/// What a client finds whose service ends within a call: the first service, the second one, and the
/// client here.
class KilledServiceSteps : public ::testing::Test {
protected:
    enum class Outcome { ByFirst, BySecond, Broken };

    KilledServiceSteps() { stage_.Reset(); }
    ~KilledServiceSteps() override { stage_.Reset(); }

    /// The client waits at a place while the service goes on to its own, where it ends.
    void Play(Step clientPlace, Step servicePlace, Fate fate, Outcome outcome,
              bool isWithdrawn = false) {
        SCOPED_TRACE(::testing::Message() << "client at " << static_cast<int>(clientPlace) << ", "
                                          << Told(servicePlace, fate));
        stage_.Reset();
        std::deque<ServiceOfOne> services(2);
        std::size_t next = 0;
        ProcessPolling process = BoundlessPolling();
        ServiceLink link([&](const SessionToken& token, const Deadline&) {
            return NewHotChannel(services.at(next++).TakeSocket(), token, process);
        });
        stage_.WaitForEver(false);
        stage_.PollFor(isWithdrawn ? kPollsOnce : kPollsForEver);
        stage_.Go(Side::Service, Stage::BitOf(Step::ServiceLooks));
        ASSERT_EQ(MakeCall(link, 1), kStatusOk);
        ASSERT_TRUE(AwaitHeld(Side::Service));
        std::int32_t status = -1;
        {
            LetClientGoTo(isWithdrawn ? Step::ClientWrites : clientPlace);
            const Background call([&] { status = MakeCall(link); });
            ASSERT_TRUE(AwaitHeld(Side::Client));
            stage_.PollFor(0);
            if (servicePlace != Step::ServiceLooks || isWithdrawn) {
                stage_.Go(Side::Service, Stage::BitOf(servicePlace));
                ASSERT_TRUE(AwaitHeld(Side::Service));
            }
            LetClientGoTo(clientPlace);
            ASSERT_TRUE(AwaitHeld(Side::Client));
            End(services[0].Process(), fate);
        }
        EXPECT_EQ(status, outcome == Outcome::Broken ? kStatusBroken : kStatusOk);
        EXPECT_EQ(next, outcome == Outcome::BySecond ? 2U : 1U);
        EXPECT_EQ(services[1].Served(), outcome == Outcome::BySecond ? 1U : 0U);
        const bool isServed = outcome == Outcome::ByFirst || servicePlace > Step::ServiceHandles ||
                              (servicePlace == Step::ServiceTells && !isWithdrawn);
        EXPECT_EQ(services[0].Served(), isServed ? 1U : 0U);
    }

    bool AwaitHeld(Side side) {
        return AwaitSoon("a step", [this, side] { return stage_.IsHeld(side); });
    }

    /// The service's end, and what comes behind it.
    void End(SteppingProcess& service, Fate fate) {
        if (fate == Fate::Killed) {
            service.Kill();
        } else {
            service.Stop();
        }
        stage_.Go(Side::Service);
        stage_.Go(Side::Client);
        if (fate == Fate::StoppedAndKilled) {
            service.Kill();
        } else if (fate == Fate::Stopped) {
            service.GoOn();
        }
    }

    Stage& stage_ = Stage::Get();
    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(KilledServiceSteps, BreakTheCallOrLeaveItToTheSuccessorOrHaveItAnswered) {
    const std::pair<Step, Outcome> rows[] = {
        {Step::ServiceLooks, Outcome::BySecond},        {Step::ServiceTakes, Outcome::BySecond},
        {Step::ServiceReads, Outcome::Broken},          {Step::ServiceHandles, Outcome::Broken},
        {Step::ServiceDecides, Outcome::Broken},        {Step::ServiceTells, Outcome::Broken},
        {Step::ServiceWrites, Outcome::Broken},         {Step::ServiceAnswers, Outcome::Broken},
        {Step::ServiceLooksWhoWaits, Outcome::ByFirst},
    };
    for (const auto& [step, outcome] : rows) {
        for (const Fate fate : kFates) {
            const Outcome told = fate == Fate::Stopped ? Outcome::ByFirst : outcome;
            Play(Step::ClientLooks, step, fate, told);
            Play(Step::ClientSleeps, step, fate, told);
        }
    }
    for (const Fate fate : kFates) {
        Play(Step::ClientSleeps, Step::ServiceRings, fate, Outcome::ByFirst);
    }
}

TEST_F(KilledServiceSteps, LeaveTheCallToTheSuccessorThatComesWhileItStopsLooking) {
    for (const Step service : {Step::ServiceTells, Step::ServiceLooks}) {
        for (const Step client :
             {Step::ClientLooksWhoPolls, Step::ClientLooks, Step::ClientSleeps}) {
            for (const Fate fate : kFates) {
                Play(client, service, fate,
                     fate == Fate::Stopped ? Outcome::ByFirst : Outcome::BySecond, true);
            }
        }
    }
}

/// What a service finds whose client ends within a call, beside another client.
class KilledClientSteps : public ::testing::Test {
protected:
    /// `answered`: behind a place at which it waits for what the service does meanwhile.
    void Play(Step place, Fate fate, bool isWithdrawn, std::optional<Step> answered = {}) {
        SCOPED_TRACE(::testing::Message() << Told(place, fate) << ", withdrawn " << isWithdrawn);
        ASSERT_EQ(MakeCall(*other_, 1), kStatusOk);
        const std::uint64_t before = server_.Served();
        const std::size_t lostBefore = server_->LostCalls().size();
        stage_.WaitForEver(false);
        stage_.PollFor(isWithdrawn ? kPollsOnce : kPollsForEver);
        stage_.Go(Side::Service, Stage::BitOf(Step::ServiceLooks));
        stage_.Go(Side::Client);  // the one before is held for ever
        LetClientGoTo(isWithdrawn ? Step::ClientWrites : place);
        SteppingProcess client([this] { return RunClient(); });
        ASSERT_TRUE(AwaitClient());
        ASSERT_FALSE(isWithdrawn && server_.GoTo(std::nullopt));
        if (isWithdrawn) {
            stage_.Go(Side::Service, Stage::BitOf(Step::ServiceTakes));  // or the answer is there
        }
        LetClientGoTo(place);
        ASSERT_TRUE(AwaitClient());
        ASSERT_FALSE(server_.GoTo(std::nullopt));
        if (answered) {
            stage_.Go(Side::Client, Stage::BitOf(*answered));
            ASSERT_TRUE(AwaitClient());
        }
        ASSERT_EQ(stage_.HeldAt(Side::Client), answered.value_or(place));
        EXPECT_EQ(MakeCall(*other_, 2), kStatusOk);
        End(client, fate);
        Await("its end", [this] { return server_->Connections() == 1; });

        const std::uint64_t served = server_.Served() - before;
        const auto lost = server_->LostCalls();
        const bool isAsked = place > Step::ClientAsks;
        if (fate == Fate::Stopped) {
            EXPECT_EQ(served, 1U);
            EXPECT_EQ(lost.size(), lostBefore);
        } else if (!isAsked) {
            EXPECT_EQ(served, 0U);
            EXPECT_EQ(lost.size(), lostBefore);
        } else {
            const bool isSeen = !isWithdrawn || place > Step::ClientRings;
            EXPECT_EQ(served, isSeen ? 1U : 0U);
            if (!isSeen) {
                ASSERT_EQ(lost.size(), lostBefore + 1);
                EXPECT_EQ(lost.back().FirstField<std::uint64_t>(), SteppingServer::kWatched);
            }
        }
        EXPECT_EQ(MakeCall(*other_, 3), kStatusOk);
    }

    int RunClient() {
        ProcessPolling process = BoundlessPolling();
        ServiceLink link([&](const SessionToken& token, const Deadline&) {
            return NewHotChannel(server_->Connect().Release(), token, process);
        });
        return MakeCall(link, 1) == kStatusOk && MakeCall(link) == kStatusOk ? 0 : 1;
    }

    bool AwaitClient() {
        return AwaitSoon("the client", [this] { return stage_.IsHeld(Side::Client); });
    }

    void End(SteppingProcess& client, Fate fate) {
        if (fate != Fate::Killed) {
            client.Stop();
            stage_.Go(Side::Client);
            EXPECT_EQ(MakeCall(*other_, 2), kStatusOk);
        }
        if (fate == Fate::Stopped) {
            client.GoOn();
            EXPECT_EQ(client.Wait(), 0);
        } else {
            client.Kill();
        }
    }

    Stage& stage_ = Stage::Get();
    zam_connector::testing::RecordingLogger logger_;
    SteppingServer server_;
    std::unique_ptr<ServiceLink> other_ = LinkTo(*server_);
};

TEST_F(KilledClientSteps, HaveTheCallServedOnceOrToldAsLostWhileOthersAreServed) {
    for (const Fate fate : kFates) {
        for (const Step place : kClientPlaces) {
            if (place != Step::ClientRings) {
                Play(place, fate, false);
            }
            Play(place, fate, true);
        }
    }
}

TEST_F(KilledClientSteps, LoseNothingBehindTheAnswer) {
    for (const Fate fate : kFates) {
        Play(Step::ClientLooks, fate, false, Step::ClientTakes);
        Play(Step::ClientLooksAgain, fate, false, Step::ClientTakes);
        Play(Step::ClientLooksAgain, fate, false, Step::ClientTellsThatItHas);
    }
}

}  // namespace
}  // namespace zam_platform::testing
