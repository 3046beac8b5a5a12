#include <gtest/gtest.h>
#include <unistd.h>

#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "server/server_connection.h"
#include "steps/stepping_server.h"
#include "support/shared_link.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// Where the service stops; nowhere: it does all that there is to do.
const std::optional<Step> kServicePlaces[] = {
    Step::ServiceTells,         Step::ServiceLooks,   Step::ServiceTakes,  Step::ServiceReads,
    Step::ServiceHandles,       Step::ServiceDecides, Step::ServiceWrites, Step::ServiceAnswers,
    Step::ServiceLooksWhoWaits, Step::ServiceRings,   std::nullopt};

/// How the service comes to look no more.
enum class Withdrawal {
    Never,
    TimeIsOver,
    Preempted,
    AnswersWithout,  ///< as when the budget or the credit is used up
    GivesUp,
};

/// Both sides of the fast channel as threads of one process, each of which goes as far as the test
/// lets it.
class DoorbellSteps : public ::testing::TestWithParam<Withdrawal> {
protected:
    DoorbellSteps()
        : link_([this](const SessionToken& token, const Deadline&) { return Connect(token); }) {}

    std::unique_ptr<Channel> Connect(const SessionToken& token) {
        auto [mine, theirs] = MakePair();
        connection_ = server_->OnLoop([this, socket = theirs.Release().Release()] {
            ServerConnection::Socket accepted(server_->Get().Context(),
                                              asio::local::stream_protocol(), socket);
            accepted.non_blocking(true);
            const auto connection = std::make_shared<ServerConnection>(
                server_->Get(), std::move(accepted), ::geteuid());
            connection->Start();
            return std::weak_ptr<ServerConnection>(connection);
        });
        return NewHotChannel(mine.Release(), token, process_);
    }

    void LetServiceGoTo(std::optional<Step> place) {
        held_ |= server_.GoTo(place) ? Stage::BitOf(*place) : 0;
    }

    void AwaitClient(const std::atomic<bool>& isOver) {
        AwaitSoon("the client", [&] { return stage_.IsHeld(Side::Client) || isOver; });
    }

    /// Leaves the service polling, and held before its next look.
    void Prepare() {
        stage_.Preempt(Side::Service, false);
        stage_.PollFor(0);
        ASSERT_EQ(MakeCall(link_, 1), kStatusOk);
        ASSERT_TRUE(server_.ComesToRest());
        stage_.PollFor(GetParam() == Withdrawal::TimeIsOver ? kPollsOnce : kPollsForEver);
        stage_.Go(Side::Service, Stage::BitOf(Step::ServiceLooks));
        ASSERT_EQ(MakeCall(link_, 2), kStatusOk);
        ASSERT_TRUE(AwaitSoon("a look", [this] { return stage_.IsHeld(Side::Service); }));
    }

    void Withdraw() {
        switch (GetParam()) {
            case Withdrawal::Never:
            case Withdrawal::TimeIsOver:
                break;
            case Withdrawal::Preempted:
                return stage_.Preempt(Side::Service, true);
            case Withdrawal::AnswersWithout:
                return stage_.PollFor(0);
            case Withdrawal::GivesUp:
                asio::post(server_->Get().Context(),
                           [connection = connection_.lock()] { connection->GiveUpMemory(); });
                break;
        }
    }

    /// The client goes to the first place, the service, the client to the second one, the service,
    /// and both to the end.
    void Play(Step first, std::optional<Step> service, Step second, std::optional<Step> rest) {
        Prepare();
        const std::uint64_t before = server_.Served();
        std::atomic<bool> isOver{false};
        std::int32_t status = -1;
        {
            LetClientGoTo(first);
            const Background call([&] {
                status = MakeCall(link_);
                isOver = true;
            });
            AwaitClient(isOver);
            Withdraw();
            LetServiceGoTo(service);
            LetClientGoTo(second);
            AwaitClient(isOver);
            LetServiceGoTo(rest);
            LetServiceGoTo(std::nullopt);
            stage_.Go(Side::Client);
        }
        server_.ComesToRest();
        EXPECT_EQ(status, kStatusOk);
        EXPECT_EQ(server_.Served() - before, 1U);
    }

    Stage& stage_ = Stage::Get();
    zam_connector::testing::RecordingLogger logger_;
    std::weak_ptr<ServerConnection> connection_;
    std::uint32_t held_ = 0;  ///< the places at which the service was
    SteppingServer server_;
    ProcessPolling process_ = BoundlessPolling();
    ServiceLink link_;
};

TEST_P(DoorbellSteps, AnswerEveryCallOnceWhereverTheyMeet) {
    // Each side is let go twice; in full, the service once more.
    const bool isFull = std::getenv("ZAM_FULL_SIZE") != nullptr;
    // Either way a client looks once.
    stage_.WaitForEver(GetParam() == Withdrawal::AnswersWithout);
    stage_.Preempt(Side::Client, true);
    for (const Step first : kClientPlaces) {
        for (const auto& service : kServicePlaces) {
            for (const Step second : kClientPlaces) {
                for (const auto& rest : kServicePlaces) {
                    if (second < first || (rest && !isFull)) {
                        continue;
                    }
                    SCOPED_TRACE(::testing::Message() << static_cast<int>(first) << ' '
                                                      << (service ? static_cast<int>(*service) : -1)
                                                      << ' ' << static_cast<int>(second) << ' '
                                                      << (rest ? static_cast<int>(*rest) : -1));
                    Play(first, service, second, rest);
                    if (HasFailure()) {
                        return;
                    }
                }
            }
        }
    }
    for (const auto& place : kServicePlaces) {
        const bool isReached = !place || (held_ & Stage::BitOf(*place)) != 0;
        const bool isToBe = GetParam() != Withdrawal::Never || place != Step::ServiceTells;
        EXPECT_EQ(isReached, isToBe) << static_cast<int>(*place);
    }
    EXPECT_TRUE(server_->BrokenSessions().empty());
    EXPECT_TRUE(logger_.Records().empty());
}

/// Its client makes no other before.
TEST_P(DoorbellSteps, AreNotLookedForWhileACallWaitsForItsAnswer) {
    stage_.WaitForEver(false);  // what is answered later comes by the socket
    Prepare();
    std::atomic<std::int32_t> status{-1};
    {
        const Background call([&] {
            TestCall held(kHold);
            status = held.On(link_);
        });
        stage_.Go(Side::Client);
        stage_.Go(Side::Service);
        server_->Endpoint().AwaitHeld(1);
        EXPECT_TRUE(server_.ComesToRest());
        const std::uint32_t looks = stage_.Count(Step::ServiceLooks);
        EXPECT_TRUE(server_.ComesToRest());
        EXPECT_EQ(stage_.Count(Step::ServiceLooks), looks);
        server_->OnLoop([this] {
            server_->Endpoint().ReleaseAll();
            return 0;
        });
    }
    EXPECT_EQ(status, kStatusOk);
}

INSTANTIATE_TEST_SUITE_P(, DoorbellSteps,
                         ::testing::Values(Withdrawal::Never, Withdrawal::TimeIsOver,
                                           Withdrawal::Preempted, Withdrawal::AnswersWithout,
                                           Withdrawal::GivesUp));

}  // namespace
}  // namespace zam_platform::testing
