#include "clock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
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

TEST(SystemClock, TakesATerminationForAnInterrupt) {
    SystemClock clock;
    clock.CatchInterrupt();
    std::raise(SIGTERM);
    EXPECT_TRUE(clock.Interrupted());
    EXPECT_EQ(clock.WaitForWake(), Clock::Wakeup::Interrupted);
}

TEST(SystemClock, WakesForEveryCallAlsoForOneThatCameBefore) {
    SystemClock clock;
    clock.CatchInterrupt();
    clock.Wake();
    EXPECT_EQ(clock.WaitForWake(), Clock::Wakeup::Called);
    std::thread caller([&clock] { clock.Wake(); });
    EXPECT_EQ(clock.WaitForWake(), Clock::Wakeup::Called);
    caller.join();
    const pthread_t waiter = ::pthread_self();
    std::thread interrupter([waiter] { ::pthread_kill(waiter, SIGTERM); });
    EXPECT_EQ(clock.WaitForWake(), Clock::Wakeup::Interrupted);
    interrupter.join();
}

TEST(SystemClock, NoticesThatNobodyReadsStandardOutput) {
    EXPECT_EXIT(
        {
            int ends[2];
            bool isDone = ::pipe(ends) == 0 && ::dup2(ends[1], STDOUT_FILENO) >= 0;
            SystemClock clock;
            clock.CatchInterrupt();
            clock.EndWithReader();
            clock.Wake();
            isDone = isDone && clock.WaitForWake() == Clock::Wakeup::Called;
            ::close(ends[0]);
            isDone = isDone && ::write(STDOUT_FILENO, "x", 1) < 0 && errno == EPIPE;
            std::_Exit(isDone && clock.WaitForWake() == Clock::Wakeup::ReaderGone ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(SystemClock, EndsTheProcessWhenItsTimeIsOver) {
    EXPECT_EXIT(
        {
            SystemClock clock;
            clock.LimitRun(1ms, "the time is over\n", 2);
            clock.SleepFor(1h);
        },
        ::testing::ExitedWithCode(2), "the time is over\n");
    SystemClock clock;
    clock.LimitRun(1h, "never", 2);
}

TEST(SystemClock, KeepsToAnEarlierEndOfTheProcess) {
    EXPECT_EXIT(
        {
            SystemClock clock;
            clock.LimitRun(300ms, "first\n", 2);
            clock.LimitRun(1h, "second\n", 3);
            clock.SleepFor(1h);
        },
        ::testing::ExitedWithCode(3), "second\n");
    EXPECT_EXIT(
        {
            SystemClock clock;
            clock.LimitRun(1h, "first\n", 2);
            clock.LimitRun(1ms, "second\n", 3);
            clock.SleepFor(1h);
        },
        ::testing::ExitedWithCode(3), "second\n");
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
