#include "channels/channel_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channels/upload_quota.h"
#include "run_until.h"
#include "support/calling_logger.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_service {
namespace {

using ::testing::HasSubstr;
using ::testing::Pointee;
using zam_platform::SessionToken;
using zam_service::testing::RunUntil;

using Clock = std::chrono::steady_clock;

SessionToken ClientToken(unsigned char number) {
    SessionToken token{};
    token[0] = static_cast<SessionToken::value_type>(number);
    return token;
}

zam_platform::ClientIdentity CallerWith(unsigned char number, uid_t user = 1000) {
    return {.token = ClientToken(number), .user = user};
}

class ChannelTableTest : public ::testing::Test {
protected:
    std::string LastRecord() const {
        const auto records = logger_.Records();
        return records.empty() ? "" : records.back().text;
    }

    zam_connector::testing::RecordingLogger logger_;
    asio::io_context loop_;
    ChannelIds ids_;
    ChannelQuota quota_;
};

TEST_F(ChannelTableTest, KeepsChannelsByNumber) {
    ChannelTable<std::string> table(loop_, ids_, quota_, "test");
    const std::int64_t first = *table.Open(CallerWith(1), "first");
    const std::int64_t second = *table.Open(CallerWith(1), "second");
    EXPECT_GT(first, 0);
    EXPECT_NE(first, second);
    EXPECT_THAT(table.Find(ClientToken(1), first), Pointee(std::string("first")));
    EXPECT_EQ(table.Take(ClientToken(1), second), "second");
    EXPECT_EQ(table.Take(ClientToken(1), second), std::nullopt);
    EXPECT_EQ(table.Count(), 1U);
    EXPECT_EQ(LastRecord(), "the client has no test channel " + std::to_string(second) + " open");
}

TEST_F(ChannelTableTest, RefusesChannelsBeyondTheUsersQuotaInAllTablesTogether) {
    ChannelQuota quota(2);
    ChannelTable<int> one(loop_, ids_, quota, "one");
    ChannelTable<int> other(loop_, ids_, quota, "other");
    const auto first = one.Open(CallerWith(1, 7), 0);
    ASSERT_TRUE(other.Open(CallerWith(2, 7), 0));
    EXPECT_FALSE(one.Open(CallerWith(3, 7), 0));
    EXPECT_EQ(LastRecord(),
              "one channel refused: the clients of user 7 have 2 channels open, the most allowed");
    EXPECT_TRUE(one.Open(CallerWith(4, 8), 0)) << "of somebody else";
    ASSERT_TRUE(one.Take(ClientToken(1), *first));
    EXPECT_TRUE(one.Open(CallerWith(3, 7), 0)) << "a place came back";
    other.EndSession(ClientToken(2));
    EXPECT_EQ(quota.TakenBy(7), 1U);
    one.EndSession(ClientToken(3));
    EXPECT_EQ(quota.TakenBy(7), 0U);
}

TEST_F(ChannelTableTest, GivesAClientNoOthersChannels) {
    ChannelTable<std::string> table(loop_, ids_, quota_, "test");
    const std::int64_t channel = *table.Open(CallerWith(1), "mine");
    EXPECT_EQ(table.Find(ClientToken(2), channel), nullptr);
    EXPECT_EQ(table.Take(ClientToken(2), channel), std::nullopt);
    EXPECT_NE(table.Find(ClientToken(1), channel), nullptr);
}

TEST_F(ChannelTableTest, NumbersDifferInEveryTableAndRun) {
    ChannelTable<int> one(loop_, ids_, quota_, "one");
    ChannelTable<int> other(loop_, ids_, quota_, "other");
    EXPECT_NE(*one.Open(CallerWith(1), 0), *other.Open(CallerWith(1), 0));
    EXPECT_NE(ChannelIds().Next(), ChannelIds().Next());
}

TEST_F(ChannelTableTest, DropsTheOldestOfAClientThatOpensTooMany) {
    ChannelTable<int> table(loop_, ids_, quota_, "test", {.perClient = 2});
    const std::int64_t others = *table.Open(CallerWith(2), 0);
    const std::int64_t first = *table.Open(CallerWith(1), 1);
    const std::int64_t second = *table.Open(CallerWith(1), 2);
    EXPECT_NE(table.Find(ClientToken(1), first), nullptr) << "two are allowed";
    const std::int64_t third = *table.Open(CallerWith(1), 3);
    EXPECT_THAT(LastRecord(), HasSubstr("test channel " + std::to_string(first) + " dropped"));
    EXPECT_EQ(table.Find(ClientToken(1), first), nullptr);
    EXPECT_NE(table.Find(ClientToken(1), second), nullptr);
    EXPECT_NE(table.Find(ClientToken(1), third), nullptr);
    EXPECT_NE(table.Find(ClientToken(2), others), nullptr);
}

TEST_F(ChannelTableTest, EndsAllChannelsOfASession) {
    ChannelTable<int> table(loop_, ids_, quota_, "test");
    table.Open(CallerWith(1), 1);
    table.Open(CallerWith(1), 2);
    table.Open(CallerWith(2), 3);
    table.EndSession(ClientToken(1));
    EXPECT_EQ(table.Count(), 1U);
    EXPECT_EQ(LastRecord(), "2 test channels ended with their client");
    logger_.Clear();
    table.EndSession(ClientToken(3));
    EXPECT_THAT(logger_.Records(), ::testing::IsEmpty());
}

TEST_F(ChannelTableTest, DropsWhatNobodyUses) {
    ChannelTable<int> table(loop_, ids_, quota_, "test", {.idle = std::chrono::milliseconds(30)});
    for (int round = 0; round < 2; ++round) {
        const std::int64_t idle = *table.Open(CallerWith(1), round);
        EXPECT_TRUE(RunUntil(loop_, [&] { return table.Count() == 0; }));
        EXPECT_EQ(LastRecord(),
                  "test channel " + std::to_string(idle) + " dropped: not used for 30 ms");
    }
}

/// What is longer on its way to its end than others may be kept waiting.
struct LongEnd {
    void operator()(const Clock::time_point* /*content*/) const {
        const auto end = Clock::now() + kLongestIdleStretch;
        while (Clock::now() < end) {
        }
    }
};

TEST_F(ChannelTableTest, DropsWhatNobodyUsesInStretches) {
    const Clock::time_point content;
    ChannelTable<std::unique_ptr<const Clock::time_point, LongEnd>> table(
        loop_, ids_, quota_, "test", {.idle = std::chrono::milliseconds(1)});
    constexpr std::size_t kChannels = 3;
    for (std::size_t number = 0; number < kChannels; ++number) {
        table.Open(CallerWith(1), std::unique_ptr<const Clock::time_point, LongEnd>(&content));
    }
    const auto due = Clock::now() + std::chrono::milliseconds(1);
    while (Clock::now() <= due) {
    }
    std::vector<std::size_t> counts;
    while (table.Count() != 0 && loop_.run_one() != 0) {
        counts.push_back(table.Count());
    }
    EXPECT_EQ(counts, (std::vector<std::size_t>{2, 1, 0}));
}

TEST_F(ChannelTableTest, LogsForTheUserOfAChannelThatNobodyUses) {
    constexpr uid_t kUser = 1234;
    std::vector<std::optional<uid_t>> users;
    zam_test::CallingLogger logger(
        [&users] { users.push_back(zam_platform::LogContext::Here().user); });
    ChannelTable<int> table(loop_, ids_, quota_, "test", {.idle = std::chrono::milliseconds(1)});
    table.Open(CallerWith(1, kUser), 1);
    EXPECT_TRUE(RunUntil(loop_, [&] { return table.Count() == 0; }));
    EXPECT_EQ(users, (std::vector<std::optional<uid_t>>{kUser}));
}

TEST_F(ChannelTableTest, CountsTheIdleTimeFromTheLastUse) {
    constexpr std::chrono::milliseconds kIdle{60};
    ChannelTable<int> table(loop_, ids_, quota_, "test", {.idle = kIdle});
    auto lastUse = Clock::now();
    const std::int64_t channel = *table.Open(CallerWith(1), 1);
    const auto half = lastUse + kIdle / 2;
    EXPECT_TRUE(RunUntil(loop_, [&] { return Clock::now() >= half; }));
    const auto beforeUse = Clock::now();
    if (table.Find(ClientToken(1), channel) !=
        nullptr) {  // on a slow machine it may be gone already
        lastUse = beforeUse;
    }
    EXPECT_TRUE(RunUntil(loop_, [&] { return table.Count() == 0; }));
    EXPECT_GE(Clock::now() - lastUse, kIdle);
}

TEST(UploadQuota, BoundsEveryUploadAndEveryUser) {
    const UploadQuota quota(100, 150);
    UploadShare one = quota.Begin(1);
    EXPECT_TRUE(one.Grow(60));
    EXPECT_TRUE(one.Grow(40));
    EXPECT_FALSE(one.Grow(1)) << "an upload has at most 100";
    UploadShare two = quota.Begin(1);
    EXPECT_FALSE(two.Grow(51)) << "its user has at most 150";
    EXPECT_TRUE(two.Grow(50));
    EXPECT_EQ(quota.TakenBy(1), 150U);
    UploadShare other = quota.Begin(2);
    EXPECT_TRUE(other.Grow(100));
    EXPECT_FALSE(other.Grow(static_cast<std::size_t>(-1)));
}

TEST(UploadQuota, GetsBackWhatEndedUploadsTook) {
    auto quota = std::make_unique<UploadQuota>(100, 100);
    UploadShare kept = quota->Begin(1);
    {
        UploadShare share = quota->Begin(1);
        EXPECT_TRUE(share.Grow(70));
        kept = std::move(share);
        EXPECT_EQ(quota->TakenBy(1), 70U);
    }
    EXPECT_EQ(quota->TakenBy(1), 70U) << "the share was moved";
    kept.Return();
    EXPECT_EQ(quota->TakenBy(1), 0U);
    EXPECT_TRUE(kept.Grow(100));
    quota.reset();
    kept.Return();
    EXPECT_FALSE(UploadShare().Grow(1));
}

}  // namespace
}  // namespace zam_service
