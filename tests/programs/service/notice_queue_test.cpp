#include "notices/notice_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

#include "fake_waiter.h"
#include "notices/error_pacing.h"
#include "notices/registration.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_service {
namespace {

using ::testing::ElementsAre;
using zam_service::testing::ClientOf;
using zam_service::testing::FakeWaiter;
using zam_service::testing::Told;

constexpr NoticeRules kStates{.sort = "state", .coalesces = false, .maxQueued = 3};
constexpr NoticeRules kKinds{.sort = "kind", .coalesces = true, .maxQueued = 3};

std::optional<Notice> Take(NoticeQueue& queue) {
    const std::optional<Notice> oldest = queue.Oldest();
    if (oldest) {
        queue.TakeOldest();
    }
    return oldest;
}

std::vector<std::uint32_t> Values(NoticeQueue& queue) {
    std::vector<std::uint32_t> values;
    while (const auto notice = Take(queue)) {
        values.push_back(notice->value);
    }
    return values;
}

TEST(NoticeQueue, KeepsStatesInOrderWithRepeats) {
    NoticeQueue queue(kStates);
    EXPECT_TRUE(queue.IsEmpty());
    EXPECT_TRUE(queue.Push(1) && queue.Push(1) && queue.Push(2));
    EXPECT_FALSE(queue.IsEmpty());
    EXPECT_THAT(Values(queue), ElementsAre(1, 1, 2));
}

TEST(NoticeQueue, DropsTheOldestBeyondItsBound) {
    NoticeQueue queue(kStates);
    for (const std::uint32_t value : {1U, 2U, 3U}) {
        EXPECT_TRUE(queue.Push(value));
    }
    EXPECT_FALSE(queue.Push(4));
    EXPECT_THAT(Values(queue), ElementsAre(2, 3, 4));
}

TEST(NoticeQueue, PutsNoticesBackIntoTheirPlacesInAnyOrder) {
    for (const bool isFirstFirst : {true, false}) {
        NoticeQueue queue(kStates);
        queue.Push(1);
        queue.Push(2);
        const Notice first = Take(queue).value_or(Notice());
        const Notice second = Take(queue).value_or(Notice());
        queue.Push(3);
        EXPECT_TRUE(queue.PutBack(isFirstFirst ? first : second));
        EXPECT_TRUE(queue.PutBack(isFirstFirst ? second : first));
        EXPECT_THAT(Values(queue), ElementsAre(1, 2, 3));
    }
}

TEST(NoticeQueue, DropsWhatIsPutBackIntoAFullQueueSinceItIsTheOldest) {
    NoticeQueue queue(kStates);
    queue.Push(1);
    const Notice first = Take(queue).value_or(Notice());
    for (const std::uint32_t value : {2U, 3U, 4U}) {
        queue.Push(value);
    }
    EXPECT_FALSE(queue.PutBack(first));
    EXPECT_THAT(Values(queue), ElementsAre(2, 3, 4));
}

TEST(NoticeQueue, HoldsEveryKindOnce) {
    NoticeQueue queue(kKinds);
    for (int round = 0; round < 100; ++round) {
        EXPECT_TRUE(queue.Push(5) && queue.Push(4));
    }
    const Notice first = Take(queue).value_or(Notice());
    queue.Push(5);
    EXPECT_TRUE(queue.PutBack(first));
    EXPECT_THAT(Values(queue), ElementsAre(5, 4));
}

TEST(Registration, LogsDroppedNoticesOnceUntilAllAreFetched) {
    const zam_connector::testing::RecordingLogger logger;
    const auto registration = std::make_shared<Registration>(kStates, 0x70001U);
    const auto fetch = [&registration] {
        auto told = std::make_shared<Told>();
        registration->Wait(std::make_unique<FakeWaiter>(told));
        return told->value;
    };
    for (std::uint32_t value = 1; value <= 10; ++value) {
        registration->Tell(value);
    }
    ASSERT_EQ(logger.Records().size(), 1U);
    EXPECT_EQ(logger.Records()[0].text,
              "state registration 0x00070001: more than 3 notices wait, the oldest are dropped");
    EXPECT_EQ(logger.Records()[0].level, zor::logger::kLevelError);
    EXPECT_EQ(fetch(), 8U);
    EXPECT_EQ(fetch(), 9U);
    EXPECT_EQ(fetch(), 10U);
    for (std::uint32_t value = 1; value <= 5; ++value) {
        registration->Tell(value);
    }
    EXPECT_EQ(logger.Records().size(), 2U);
}

TEST(ErrorPacing, LetsTheFirstGoAtOnceAndTheOthersAPauseApart) {
    ErrorPacing pacing;
    const auto now = ErrorPacing::TimePoint(std::chrono::hours(1));
    const auto token = ClientOf(1).token;
    EXPECT_EQ(pacing.Next(token, 1, now), now);
    EXPECT_EQ(pacing.Next(token, 1, now), now + kErrorPause);
    EXPECT_EQ(pacing.Next(token, 1, now + kErrorPause / 2), now + 2 * kErrorPause);
    EXPECT_EQ(pacing.Next(token, 2, now), now) << "another registration";
    EXPECT_EQ(pacing.Next(ClientOf(2).token, 1, now), now) << "another client";
    EXPECT_EQ(pacing.Next(token, 1, now + 10 * kErrorPause), now + 10 * kErrorPause);
}

TEST(ErrorPacing, ForgetsWhatNoLongerMatters) {
    ErrorPacing pacing;
    auto now = ErrorPacing::TimePoint(std::chrono::hours(1));
    for (std::uint32_t id = 1; id <= 10'000; ++id) {
        pacing.Next(ClientOf(1).token, id, now);
        now += kErrorPause / 10;
    }
    EXPECT_LT(pacing.Count(), 200U);
}

}  // namespace
}  // namespace zam_service
