#include "notices/notice_board.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fake_waiter.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_service {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zam_service::testing::ClientOf;
using zam_service::testing::FakeWaiter;
using zam_service::testing::Told;

constexpr NoticeEpoch kEpoch = 7;
constexpr std::uint32_t kOldId = (8U << kNoticeEpochShift) | 3U;

/// A board whose registrations of runs before have missed 1, 2 and 3.
class NoticeBoardTest : public ::testing::Test {
protected:
    static std::vector<std::uint32_t> Missed() { return {1, 2, 3}; }

    std::uint32_t Register(unsigned char client = 1) {
        return board_.Register(ClientOf(client)).value_or(0);
    }

    std::shared_ptr<Told> Wait(std::uint32_t id, unsigned char client = 1) {
        auto told = std::make_shared<Told>();
        board_.Wait(ClientOf(client), id, std::make_unique<FakeWaiter>(told));
        return told;
    }

    /// What is told to calls of one client, one after the other, until one has to wait, which the
    /// next fetch goes on with. Every notice comes.
    std::vector<std::uint32_t> Fetch(std::uint32_t id, unsigned char client = 1) {
        std::shared_ptr<Told>& told = waiting_[{client, id}];
        std::vector<std::uint32_t> values;
        for (told = told ? told : Wait(id, client); told->value; told = Wait(id, client)) {
            values.push_back(*told->value);
            told->onDelivery(true);
        }
        return values;
    }

    void Tell(const std::vector<std::uint32_t>& values) {
        std::for_each(values.begin(), values.end(),
                      [this](std::uint32_t value) { board_.Tell(value); });
    }

    std::size_t LogCount(const std::string& part) const {
        const auto records = logger_.Records();
        return static_cast<std::size_t>(std::count_if(
            records.begin(), records.end(),
            [&part](const auto& record) { return record.text.find(part) != std::string::npos; }));
    }

    zam_connector::testing::RecordingLogger logger_;
    std::map<std::pair<unsigned char, std::uint32_t>, std::shared_ptr<Told>> waiting_;
    NoticeBoard board_{{.sort = "test", .coalesces = true, .maxQueued = 4},
                       kEpoch,
                       Missed,
                       {.perClient = 2, .perUser = 3, .endedPerClient = 2}};
};

TEST_F(NoticeBoardTest, EndsARegistrationThatItsClientWasNotToldOf) {
    const std::uint32_t id = Register();
    board_.EndUntold(ClientOf(2), id);
    EXPECT_EQ(board_.Count(), 1U) << "another client's";
    board_.EndUntold(ClientOf(1), id);
    EXPECT_EQ(board_.Count(), 0U);
}

TEST_F(NoticeBoardTest, KeepsARegistrationThatItsClientHasWaitedFor) {
    const std::uint32_t id = Register();
    const auto told = Wait(id);
    board_.EndUntold(ClientOf(1), id);
    EXPECT_EQ(board_.Count(), 1U);
    EXPECT_FALSE(told->end);
}

TEST_F(NoticeBoardTest, TellsAFreshRegistrationNothingThatWasBefore) {
    board_.Tell(1);
    const std::uint32_t id = Register();
    const auto told = Wait(id);
    EXPECT_FALSE(told->value);
    EXPECT_FALSE(told->isOver);
    board_.Tell(2);
    EXPECT_EQ(told->value, 2U);
    EXPECT_TRUE(told->isOver);
}

TEST_F(NoticeBoardTest, TellsEveryRegistration) {
    const std::uint32_t first = Register(1);
    const std::uint32_t second = Register(1);
    const std::uint32_t others = Register(2);
    board_.Tell(5);
    EXPECT_THAT(Fetch(first), ElementsAre(5));
    EXPECT_THAT(Fetch(second), ElementsAre(5));
    EXPECT_THAT(Fetch(others, 2), ElementsAre(5));
    EXPECT_EQ(board_.Count(), 3U);
}

TEST_F(NoticeBoardTest, CoalescesKindsInTheOrderInWhichTheyCameFirst) {
    const std::uint32_t id = Register();
    Tell({4, 1, 4, 2, 1, 4});
    EXPECT_THAT(Fetch(id), ElementsAre(4, 1, 2));
    Tell({1, 4});
    EXPECT_THAT(Fetch(id), ElementsAre(1, 4));
}

TEST_F(NoticeBoardTest, TellsAgainWhatChangesWhileItsNoticeIsInFlight) {
    const std::uint32_t id = Register();
    board_.Tell(4);
    const auto told = Wait(id);
    EXPECT_TRUE(board_.HasInFlight(ClientOf(1).token, id));
    board_.Tell(4);
    told->onDelivery(true);
    EXPECT_FALSE(board_.HasInFlight(ClientOf(1).token, id));
    EXPECT_THAT(Fetch(id), ElementsAre(4)) << "the client may have fetched before the change";
}

TEST_F(NoticeBoardTest, PutsALostNoticeInFrontAndTellsItOnce) {
    const std::uint32_t id = Register();
    Tell({4, 5});
    const auto told = Wait(id);
    Tell({6, 4});
    told->onDelivery(false);
    EXPECT_THAT(Fetch(id), ElementsAre(4, 5, 6));
}

TEST_F(NoticeBoardTest, GivesALostNoticeToWhoWaitsAlready) {
    const std::uint32_t id = Register();
    board_.Tell(4);
    const auto lost = Wait(id);
    const auto waiting = Wait(id);
    EXPECT_FALSE(waiting->value);
    lost->onDelivery(false);
    EXPECT_EQ(waiting->value, 4U);
}

TEST_F(NoticeBoardTest, EndsTheOlderOfTwoWaits) {
    const std::uint32_t id = Register();
    const auto older = Wait(id);
    const auto younger = Wait(id);
    EXPECT_EQ(older->end, WaitEnd::Displaced);
    EXPECT_TRUE(older->isOver);
    board_.Tell(1);
    EXPECT_EQ(younger->value, 1U);
    EXPECT_FALSE(older->value);
}

TEST_F(NoticeBoardTest, EndsTheWaitOfARegistrationThatEnds) {
    const std::uint32_t id = Register();
    const auto told = Wait(id);
    board_.Unregister(ClientOf(1), id);
    EXPECT_EQ(told->end, WaitEnd::Unregistered);
    EXPECT_EQ(board_.Count(), 0U);
    board_.Tell(1);
    EXPECT_FALSE(told->value);
}

TEST_F(NoticeBoardTest, EndsAWaitThatComesBehindItsUnregister) {
    const std::uint32_t id = Register();
    board_.Unregister(ClientOf(1), id);
    const auto told = Wait(id);
    EXPECT_EQ(told->end, WaitEnd::Unknown);
    board_.Unregister(ClientOf(1), id);
    EXPECT_EQ(board_.Count(), 0U);
}

TEST_F(NoticeBoardTest, ForgetsANoticeThatIsLostBehindItsUnregister) {
    const std::uint32_t id = Register();
    board_.Tell(1);
    const auto told = Wait(id);
    board_.Unregister(ClientOf(1), id);
    told->onDelivery(false);
    EXPECT_EQ(Wait(id)->end, WaitEnd::Unknown);
}

TEST_F(NoticeBoardTest, GivesAClientNoOthersRegistrations) {
    const std::uint32_t id = Register(1);
    Register(2);
    EXPECT_EQ(Wait(id, 2)->end, WaitEnd::Unknown);
    const auto told = Wait(id, 1);
    board_.Unregister(ClientOf(2), id);
    EXPECT_FALSE(told->end);
    EXPECT_EQ(board_.Count(), 2U);
}

TEST_F(NoticeBoardTest, TakesUpARegistrationOfARunBeforeAndTellsAllThatItMissed) {
    EXPECT_THAT(Fetch(kOldId), ElementsAre(1, 2, 3));
    board_.Tell(5);
    EXPECT_THAT(Fetch(kOldId), ElementsAre(5)) << "what was missed is told once";
    EXPECT_EQ(board_.Count(), 1U);
    EXPECT_EQ(LogCount("of a run before is taken up again"), 1U);
}

TEST_F(NoticeBoardTest, TakesUpOldRegistrationsBesideNewOnes) {
    const std::uint32_t id = Register();
    EXPECT_THAT(Fetch(kOldId), ElementsAre(1, 2, 3));
    EXPECT_THAT(Fetch(id), IsEmpty());
}

TEST_F(NoticeBoardTest, DoesNotTakeUpWhatItsClientHasUnregistered) {
    board_.Unregister(ClientOf(1), kOldId);
    EXPECT_EQ(Wait(kOldId)->end, WaitEnd::Unknown);
    EXPECT_EQ(board_.Count(), 0U);

    EXPECT_THAT(Fetch(kOldId, 2), ElementsAre(1, 2, 3)) << "another client's";
    board_.Unregister(ClientOf(2), kOldId);
    EXPECT_EQ(Wait(kOldId, 2)->end, WaitEnd::Unknown);
}

TEST_F(NoticeBoardTest, RemembersTheLatestThatWereUnregistered) {
    for (const std::uint32_t id : {kOldId, kOldId + 1, kOldId, kOldId + 2}) {
        board_.Unregister(ClientOf(1), id);
    }
    EXPECT_EQ(Wait(kOldId)->end, WaitEnd::Unknown);
    EXPECT_EQ(Wait(kOldId + 2)->end, WaitEnd::Unknown);
    EXPECT_TRUE(Wait(kOldId + 1)->value) << "two are remembered";
}

TEST_F(NoticeBoardTest, TakesUpARegistrationWhoseSessionHasEnded) {
    const std::uint32_t id = Register();
    board_.EndSession(ClientOf(1).token);
    EXPECT_EQ(board_.Count(), 0U);
    EXPECT_THAT(Fetch(id), ElementsAre(1, 2, 3));
}

TEST_F(NoticeBoardTest, RefusesIdsThatNoRunGives) {
    for (const std::uint32_t id : {0U, 1U, 0xFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        board_.Unregister(ClientOf(1), id);
        EXPECT_EQ(Wait(id)->end, WaitEnd::Invalid) << id;
    }
    EXPECT_EQ(board_.Count(), 0U);
}

TEST_F(NoticeBoardTest, BoundsTheRegistrationsOfAClientAndOfAUser) {
    const std::uint32_t id = Register(1);
    Register(1);
    EXPECT_EQ(Register(1), 0U) << "a client has at most 2";
    EXPECT_EQ(Wait(kOldId, 1)->end, WaitEnd::Full);
    EXPECT_NE(Register(2), 0U);
    EXPECT_EQ(Register(2), 0U) << "their user has at most 3";
    EXPECT_EQ(Wait(kOldId, 2)->end, WaitEnd::Full);
    EXPECT_TRUE(board_.Register(ClientOf(3, 1001)));
    EXPECT_EQ(LogCount("test registration refused"), 4U);

    board_.Unregister(ClientOf(1), id);
    EXPECT_NE(Register(2), 0U);
    board_.EndSession(ClientOf(2).token);
    EXPECT_NE(Register(1), 0U);
}

TEST_F(NoticeBoardTest, LetsGoOfTheCallsOfASessionThatEnds) {
    const std::uint32_t id = Register();
    const auto told = Wait(id);
    board_.EndSession(ClientOf(1).token);
    EXPECT_TRUE(told->isOver);
    EXPECT_FALSE(told->end);
    EXPECT_EQ(LogCount("1 test registrations ended with their client"), 1U);
}

TEST_F(NoticeBoardTest, LetsGoOfEverythingWhenItIsCleared) {
    const auto told = Wait(Register());
    board_.Clear();
    EXPECT_TRUE(told->isOver);
    EXPECT_EQ(board_.Count(), 0U);
}

TEST_F(NoticeBoardTest, GivesIdsThatArePositiveAndNotInUse) {
    const std::uint32_t kept = Register();
    std::set<std::uint32_t> ids;
    for (int number = 0; number < 0x10000; ++number) {
        const std::uint32_t id = Register();
        ASSERT_GT(static_cast<std::int32_t>(id), 0);
        ASSERT_EQ(id >> kNoticeEpochShift, kEpoch);
        ASSERT_NE(id, kept);
        ids.insert(id);
        board_.Unregister(ClientOf(1), id);
    }
    EXPECT_EQ(ids.size(), 0xFFFEU) << "all but the one in use and the 0";
}

TEST(NoticeEpochs, ArePositiveAndVary) {
    std::set<NoticeEpoch> epochs;
    for (int run = 0; run < 100; ++run) {
        const NoticeEpoch epoch = NewNoticeEpoch();
        EXPECT_GE(epoch, 1U);
        EXPECT_LE(epoch, kMaxNoticeEpoch);
        epochs.insert(epoch);
    }
    EXPECT_GT(epochs.size(), 50U);
}

}  // namespace
}  // namespace zam_service
