#include "qor/utils/event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

#include "library/zor_ipc/notification/thread_state.h"

namespace qor::utils {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using zam_connector::test::kBound;
using zam_connector::test::ThreadNumber;

constexpr int kSignalled = 0;
constexpr int kTimedOut = 1;
constexpr hours kHundredYears(24 * 365 * 100);

/// A clock that stands where the test puts it at each look. `Number` makes clocks different types.
template <int Number>
struct FakeClock {
    using rep = std::int64_t;
    using period = std::nano;
    using duration = std::chrono::duration<rep, period>;
    using time_point = std::chrono::time_point<FakeClock>;
    static constexpr bool is_steady = Number == 0;

    static time_point now() { return time_point(at(looks++)); }

    static inline std::atomic<int> looks{0};
    static inline std::function<duration(int look)> at;
};

using FakeSteady = FakeClock<0>;
using FakeWall = FakeClock<1>;
using FakeTimeEvent = BasicEvent<FakeSteady, FakeWall>;

class EventDeadline : public ::testing::Test {
protected:
    EventDeadline() {
        FakeSteady::looks = 0;
        FakeWall::looks = 0;
        FakeSteady::at = [](int) { return hours(10); };
        FakeWall::at = [](int) { return hours(1000); };
    }
};

TEST(Event, IsNotSignalledAtFirst) {
    EXPECT_EQ(Event(true).Wait(milliseconds(0)), kTimedOut);
    EXPECT_EQ(Event(false).Wait(milliseconds(0)), kTimedOut);
}

TEST(Event, EndsOneWaitWhenItResetsItself) {
    Event event(true);
    event.Set();
    event.Set();
    EXPECT_EQ(event.Wait(milliseconds(0)), kSignalled);
    EXPECT_EQ(event.Wait(milliseconds(0)), kTimedOut);
    event.Set();
    EXPECT_EQ(event.Wait(milliseconds(0)), kSignalled);
}

TEST(Event, EndsAllWaitsWhenItDoesNotResetItself) {
    Event event(false);
    event.Set();
    EXPECT_EQ(event.Wait(milliseconds(0)), kSignalled);
    EXPECT_EQ(event.Wait(milliseconds(0)), kSignalled);
}

TEST(Event, TakesTimesBelowZeroForZero) {
    Event event(true);
    EXPECT_EQ(event.Wait(milliseconds(-1)), kTimedOut);
    EXPECT_EQ(event.Wait(milliseconds::min()), kTimedOut);
    event.Set();
    EXPECT_EQ(event.Wait(milliseconds::min()), kSignalled);
}

TEST(Event, TimesOutAfterATimeAndNotBefore) {
    Event event(true);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(event.Wait(milliseconds(20)), kTimedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(20));
}

/// A thread that waits for an event.
class Waiter {
public:
    Waiter(Event& event, milliseconds timeout, std::atomic<int>& ended)
        : thread_([this, &event, timeout, &ended] {
              number_ = ThreadNumber();
              result_ = event.Wait(timeout);
              ++ended;
          }) {}

    bool WaitUntilAsleep() { return zam_connector::test::WaitUntilAsleep(number_); }

    int Result() {
        thread_.join();
        return result_;
    }

private:
    std::atomic<pid_t> number_{0};
    int result_ = -1;
    std::thread thread_;
};

TEST(Event, WakesWhoWaitsWithoutEnd) {
    Event event(true);
    std::atomic<int> ended{0};
    Waiter waiter(event, milliseconds::max(), ended);
    ASSERT_TRUE(waiter.WaitUntilAsleep());
    EXPECT_EQ(ended, 0);
    event.Set();
    EXPECT_EQ(waiter.Result(), kSignalled);
    EXPECT_EQ(event.Wait(milliseconds(0)), kTimedOut);
}

TEST(Event, WakesOneOfTwoWhenItResetsItself) {
    Event event(true);
    std::atomic<int> ended{0};
    Waiter first(event, kBound, ended);
    Waiter second(event, kBound, ended);
    ASSERT_TRUE(first.WaitUntilAsleep());
    ASSERT_TRUE(second.WaitUntilAsleep());
    event.Set();
    while (ended == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(event.Wait(milliseconds(0)), kTimedOut);
    EXPECT_EQ(ended, 1);
    event.Set();
    EXPECT_EQ(first.Result(), kSignalled);
    EXPECT_EQ(second.Result(), kSignalled);
}

TEST(Event, WakesAllWhenItDoesNotResetItself) {
    Event event(false);
    std::atomic<int> ended{0};
    Waiter first(event, kBound, ended);
    Waiter second(event, kBound, ended);
    ASSERT_TRUE(first.WaitUntilAsleep());
    ASSERT_TRUE(second.WaitUntilAsleep());
    event.Set();
    EXPECT_EQ(first.Result(), kSignalled);
    EXPECT_EQ(second.Result(), kSignalled);
}

TEST_F(EventDeadline, IsNotLookedAtWhenTheSignalIsThere) {
    FakeTimeEvent event(true);
    event.Set();
    EXPECT_EQ(event.Wait(hours(1)), kSignalled);
    EXPECT_EQ(FakeSteady::looks, 0);
    EXPECT_EQ(FakeWall::looks, 0);
}

TEST_F(EventDeadline, HasPassedWhenBothClocksHaveReachedIt) {
    FakeTimeEvent event(true);
    EXPECT_EQ(event.Wait(milliseconds(0)), kTimedOut);
    // One look for the deadline, one for the distance to it, one to compare.
    EXPECT_EQ(FakeSteady::looks, 3);
}

TEST_F(EventDeadline, StandsOnTheSteadyClockWhenTheWallClockRunsAhead) {
    FakeWall::at = [](int look) { return hours(1000 + look); };
    FakeSteady::at = [](int look) { return hours(10) + milliseconds(look); };
    FakeTimeEvent event(true);
    EXPECT_EQ(event.Wait(milliseconds(10)), kTimedOut);
    // Two looks in each pass; the one that first finds 10 ms gone is the last.
    EXPECT_EQ(FakeSteady::looks, 11);
}

TEST_F(EventDeadline, IsMeasuredAnewWhenTheWallClockStandsStill) {
    // The steady clock passes the deadline in the first pass; the wall clock has to be past the
    // time of that pass as well, which only the second pass computes from what is left.
    FakeSteady::at = [](int look) { return hours(look < 2 ? 10 : 11); };
    FakeTimeEvent event(true);
    EXPECT_EQ(event.Wait(milliseconds(1)), kTimedOut);
    EXPECT_EQ(FakeSteady::looks, 4);
}

TEST_F(EventDeadline, IsBeatenByASignal) {
    std::atomic<bool> passed{false};
    FakeSteady::at = [&](int) { return hours(passed ? 20 : 10); };
    FakeWall::at = [&](int) { return hours(passed ? 2000 : 1000); };
    FakeTimeEvent event(true);
    int result = -1;
    std::thread waiter([&] { result = event.Wait(hours(1)); });
    while (FakeWall::looks == 0) {
        std::this_thread::yield();
    }
    // The waiter looks at the clocks with the mutex held, so this wait gets in between only when
    // the waiter sleeps.
    EXPECT_EQ(event.Wait(milliseconds(0)), kTimedOut);
    passed = true;
    event.Set();
    waiter.join();
    EXPECT_EQ(result, kSignalled);
    EXPECT_EQ(event.Wait(milliseconds(0)), kTimedOut);
}

TEST_F(EventDeadline, OfAVeryLongWaitStaysInTheRangeOfTheClocks) {
    FakeSteady::at = [](int look) { return look < 2 ? hours(0) : kHundredYears; };
    FakeWall::at = [](int look) { return look < 1 ? hours(0) : kHundredYears; };
    FakeTimeEvent event(true);
    EXPECT_EQ(event.Wait(milliseconds::max()), kTimedOut);
    EXPECT_EQ(FakeSteady::looks, 3);
}

}  // namespace
}  // namespace qor::utils
