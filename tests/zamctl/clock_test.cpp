#include "clock.h"

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

namespace zamctl::test {
namespace {

using namespace std::chrono_literals;

TEST(SystemClock, SleepsAsLongAsItIsTold) {
    SystemClock clock;
    const Clock::TimePoint start = clock.Now();
    EXPECT_TRUE(clock.SleepFor(5ms));
    EXPECT_GE(clock.Now() - start, 5ms);
    EXPECT_TRUE(clock.SleepFor(0ms));
    EXPECT_TRUE(clock.SleepFor(-1ms));
    EXPECT_FALSE(clock.Interrupted());
}

TEST(SystemClock, DoesNotSleepBehindAnInterrupt) {
    SystemClock clock;
    clock.CatchInterrupt();
    EXPECT_FALSE(clock.Interrupted());
    std::raise(SIGINT);
    EXPECT_TRUE(clock.Interrupted());
    EXPECT_FALSE(clock.SleepFor(1h));
}

TEST(SystemClock, EndsASleepAtAnInterrupt) {
    SystemClock clock;
    clock.CatchInterrupt();
    const pthread_t sleeper = ::pthread_self();
    std::thread interrupter([sleeper] { ::pthread_kill(sleeper, SIGINT); });
    EXPECT_FALSE(clock.SleepFor(1h));
    interrupter.join();
}

TEST(SystemClock, LeavesTheSecondInterruptToTheSystem) {
    EXPECT_EXIT(
        {
            SystemClock clock;
            clock.CatchInterrupt();
            std::raise(SIGINT);
            std::raise(SIGINT);
        },
        ::testing::KilledBySignal(SIGINT), "");
}

TEST(SystemClock, PutsTheSignalBack) {
    struct sigaction before {};
    ASSERT_EQ(::sigaction(SIGINT, nullptr, &before), 0);
    {
        SystemClock clock;
        clock.CatchInterrupt();
        clock.CatchInterrupt();
        std::raise(SIGINT);
    }
    struct sigaction after {};
    ASSERT_EQ(::sigaction(SIGINT, nullptr, &after), 0);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
    EXPECT_FALSE(SystemClock().Interrupted());
}

}  // namespace
}  // namespace zamctl::test
