#include "zam_platform/server/alarm.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>

namespace zam_platform {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class AlarmTest : public ::testing::Test {
protected:
    asio::io_context loop_;
    int rings_ = 0;
    std::optional<Alarm> alarm_ = std::optional<Alarm>(std::in_place, loop_, [this] { ++rings_; });
};

TEST_F(AlarmTest, RingsOnceAtItsTimeAndNotBefore) {
    const auto time = Clock::now() + milliseconds(20);
    alarm_->RingAt(time);
    EXPECT_TRUE(alarm_->IsSet());
    loop_.run();
    EXPECT_EQ(rings_, 1);
    EXPECT_GE(Clock::now(), time);
    EXPECT_FALSE(alarm_->IsSet());
}

TEST_F(AlarmTest, RingsRightAwayForATimeThatHasPassedButNotWithinTheCall) {
    alarm_->RingAt(Clock::now() - hours(1));
    EXPECT_EQ(rings_, 0);
    loop_.run();
    EXPECT_EQ(rings_, 1);
}

TEST_F(AlarmTest, RingsEarlierWhenItIsSetEarlier) {
    alarm_->RingAfter(hours(1));
    alarm_->RingAfter(milliseconds(1));
    loop_.run();
    EXPECT_EQ(rings_, 1);
}

TEST_F(AlarmTest, RingsLaterWhenItIsSetLater) {
    alarm_->RingAfter(milliseconds(0));
    const auto time = Clock::now() + milliseconds(20);
    alarm_->RingAt(time);
    loop_.run();
    EXPECT_EQ(rings_, 1);
    EXPECT_GE(Clock::now(), time);
}

TEST_F(AlarmTest, RingsNotWhenItIsCancelled) {
    alarm_->RingAfter(hours(1));
    alarm_->Cancel();
    EXPECT_FALSE(alarm_->IsSet());
    loop_.run();
    EXPECT_EQ(rings_, 0);
}

TEST_F(AlarmTest, RingsWhenItIsSetBehindACancel) {
    for (const auto delay : {milliseconds(1), milliseconds(20)}) {
        loop_.restart();
        rings_ = 0;
        alarm_->RingAfter(milliseconds(5));
        alarm_->Cancel();
        alarm_->RingAfter(delay);
        loop_.run();
        EXPECT_EQ(rings_, 1);
    }
}

TEST_F(AlarmTest, RingsNotWhenItIsGone) {
    alarm_->RingAfter(milliseconds(0));
    alarm_.reset();
    loop_.run();
    EXPECT_EQ(rings_, 0);
}

TEST_F(AlarmTest, MayBeSetWhileItRings) {
    std::optional<Alarm> again;
    again.emplace(loop_, [&] {
        if (++rings_ < 3) {
            again->RingAfter(milliseconds(1));
        }
    });
    again->RingAfter(milliseconds(1));
    loop_.run();
    EXPECT_EQ(rings_, 3);
}

TEST_F(AlarmTest, MayGoWhileItRings) {
    auto going = std::make_unique<std::optional<Alarm>>();
    going->emplace(loop_, [&] {
        going->reset();
        ++rings_;
    });
    (*going)->RingAfter(milliseconds(0));
    loop_.run();
    EXPECT_EQ(rings_, 1);
}

TEST_F(AlarmTest, GoesWithALoopThatNeverRuns) {
    auto loop = std::make_unique<asio::io_context>();
    Alarm set(*loop, [this] { ++rings_; });
    set.RingAfter(milliseconds(0));
    {
        const Alarm unset(*loop, [this] { ++rings_; });
    }
    EXPECT_EQ(rings_, 0);
}

}  // namespace
}  // namespace zam_platform
