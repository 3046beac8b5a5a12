#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "hot_client_fixture.h"

namespace zam_connector::test {
namespace {

/// Either side falling over while calls go through memory.
using KilledWhileHot = HotClientTest;

/// The kernel ends the descriptors of a killed process from the greatest number down, and takes
/// some 15 ms for each that watches a folder: a connection with a lower number would be told that
/// late.
TEST_F(KilledWhileHot, HasNoConnectionBelowWhatEndsSlowly) {
    StartHotService();
    StartClient();
    ASSERT_TRUE(Eventually([this] { return !Told("event").empty(); }));
    int slowest = -1;
    int connection = std::numeric_limits<int>::max();
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(service_.Pid()) + "/fd")) {
        const int number = std::stoi(entry.path().filename());
        std::error_code isClosed;
        const std::string what = std::filesystem::read_symlink(entry.path(), isClosed);
        if (what == "anon_inode:inotify") {
            slowest = std::max(slowest, number);
        } else if (what.starts_with("socket:")) {
            connection = std::min(connection, number);
        }
    }
    EXPECT_GE(slowest, 0);
    EXPECT_LT(slowest, connection);
}

TEST_F(KilledWhileHot, EndsWaitsAtOnceAndLosesAndRepeatsNothing) {
    if (!CanPoll()) {
        GTEST_SKIP() << "calls go through memory between two CPUs";
    }
    const int kills = IsFullSize() ? 1000 : 10;  // of either side
    StartHotService();
    StartClient();
    std::mt19937 random(20261122);
    const auto pause = [&random] {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3'000));
    };
    for (int kill = 0; kill < kills; ++kill) {
        ASSERT_TRUE(IsHot());
        pause();
        service_.Kill();
        StartHotService();
        ASSERT_TRUE(IsHot());
        pause();
        client_->Signal(SIGKILL);
        client_->Wait();
        StartClient();
    }
    ASSERT_TRUE(IsHot());
    const std::size_t before = Told("event").size();
    EXPECT_TRUE(Eventually([&] { return Told("event").size() > before; }));
    client_->Signal(SIGKILL);
    client_->Wait();
    ExpectEventsOnce();

    std::vector<std::int64_t> waits;
    for (const std::string& waited : Told("waited")) {
        waits.push_back(std::stoll(waited));
    }
    ASSERT_FALSE(waits.empty());
    std::sort(waits.begin(), waits.end());
    const auto at = [&waits](std::size_t percent) {
        return std::to_string(waits[(waits.size() - 1) * percent / 100] / 1000);
    };
    const auto atOnce = std::upper_bound(waits.begin(), waits.end(), 1'000'000) - waits.begin();
    const std::string figures =
        fmt::format("{} of {} waits within 1 ms; us {} half, {} 99 %, {} longest", atOnce,
                    waits.size(), at(50), at(99), at(100));
    RecordProperty("waits", figures);
    fmt::print("{}\n", figures);
    EXPECT_LT(std::chrono::nanoseconds(waits.back()), kBound);
}

}  // namespace
}  // namespace zam_connector::test
