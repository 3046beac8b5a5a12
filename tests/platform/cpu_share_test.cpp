#include "shared/cpu_share.h"
#include "shared/shared_file.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "shared/preemption.h"
#include "support/background.h"
#include "zam_platform/spin_setting.h"

namespace zam_platform::testing {
namespace {

TEST(CpuQuota, IsTheQuotaByThePeriodOrNoBound) {
    const std::pair<std::string_view, std::optional<double>> rows[] = {
        {"max 100000\n", std::nullopt}, {"200000 100000\n", 2.0},
        {"199999 100000\n", 1.99999},   {"50000 100000", 0.5},
        {"100000 50000\n", 2.0},        {"", std::nullopt},
        {"100000", std::nullopt},       {"100000 ", std::nullopt},
        {"100000 0\n", std::nullopt},   {"0 100000\n", std::nullopt},
        {"-1 100000", std::nullopt},    {"99999999999999999999 1", std::nullopt},
    };
    for (const auto& [text, quota] : rows) {
        EXPECT_EQ(CpuQuota(text), quota) << text;
    }
}

TEST(Commit, IsStrictWhereTheKernelSaysSo) {
    std::ifstream file("/proc/sys/vm/overcommit_memory");
    int overcommit = 0;
    file >> overcommit;
    EXPECT_EQ(IsCommitStrict(), overcommit == 2);
}

/// In a process of its own, which has no more than the limit afterwards.
TEST(Commit, IsStrictWhereTheProcessMayNotHaveAsMuch) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            rlimit limit{};
            ::getrlimit(RLIMIT_AS, &limit);
            limit.rlim_cur = std::size_t{1} << 30U;
            ::setrlimit(RLIMIT_AS, &limit);
            ::_exit(IsCommitStrict() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(Spin, IsANumberOfMicrosecondsUpToTheMost) {
    using std::chrono::microseconds;
    const std::pair<std::string_view, std::optional<microseconds>> rows[] = {
        {"0", microseconds(0)},   {"1", microseconds(1)},       {"49", microseconds(49)},
        {"50", microseconds(50)}, {"51", std::nullopt},         {"-1", std::nullopt},
        {"", std::nullopt},       {" 1", std::nullopt},         {"1us", std::nullopt},
        {"0x1", std::nullopt},    {"4294967296", std::nullopt},
    };
    for (const auto& [text, spin] : rows) {
        EXPECT_EQ(ParseSpin(text), spin) << text;
    }
}

/// Keeps the calling thread to one of the CPUs that it may use.
void StayOnOneCpu() {
    cpu_set_t own;
    CPU_ZERO(&own);
    CPU_SET(static_cast<std::size_t>(::sched_getcpu()), &own);
    ASSERT_EQ(::sched_setaffinity(0, sizeof(own), &own), 0);
}

TEST(Preemption, IsToldOnceOfAThreadWhoseCpuSomebodyElseWasGiven) {
    bool isTold = false;
    bool isToldAgain = true;
    std::thread([&] {
        StayOnOneCpu();
        HasBeenPreempted({});
        std::atomic<bool> hasEnded{false};
        std::thread neighbour([&hasEnded] {  // on the same CPU, which it inherits
            while (!hasEnded) {
            }
        });
        const auto end = std::chrono::steady_clock::now() + kBound;
        while (!isTold && std::chrono::steady_clock::now() < end) {
            isTold = HasBeenPreempted({});
        }
        hasEnded = true;
        neighbour.join();
        // Nobody is there any more, but for what the machine does by itself.
        for (int attempt = 0; isToldAgain && attempt < 1000; ++attempt) {
            isToldAgain = HasBeenPreempted({});
        }
    }).join();
    EXPECT_TRUE(isTold);
    EXPECT_FALSE(isToldAgain);
}

/// The scheduler counts such times, and does not say when they were.
TEST(Preemption, IsNotKnownOfLongAgo) {
    bool isTold = false;
    bool isToldOfHole = false;
    std::thread([&] {
        StayOnOneCpu();
        std::atomic<bool> hasEnded{false};
        std::thread neighbour([&hasEnded] {
            while (!hasEnded) {
            }
        });
        HasBeenPreempted({});
        const auto switches = [] {
            rusage usage{};
            ::getrusage(RUSAGE_THREAD, &usage);
            return usage.ru_nivcsw;
        };
        const long before = switches();
        const auto begin = std::chrono::steady_clock::now();
        while (switches() == before ||
               std::chrono::steady_clock::now() < begin + std::chrono::milliseconds(30)) {
        }
        isTold = HasBeenPreempted({});
        // However long the hole was that is asked about.
        const auto end = std::chrono::steady_clock::now() + kBound;
        for (long last = switches(); !isToldOfHole && std::chrono::steady_clock::now() < end;) {
            const auto asked = std::chrono::steady_clock::now();
            HasBeenPreempted({});
            while (switches() == last ||
                   std::chrono::steady_clock::now() < asked + std::chrono::milliseconds(30)) {
            }
            last = switches();
            isToldOfHole = HasBeenPreempted(std::chrono::steady_clock::now() - asked);
        }
        hasEnded = true;
        neighbour.join();
    }).join();
    EXPECT_FALSE(isTold);
    EXPECT_TRUE(isToldOfHole);
}

}  // namespace
}  // namespace zam_platform::testing
