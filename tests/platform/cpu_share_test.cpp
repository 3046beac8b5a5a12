#include "shared/cpu_share.h"

#include <gtest/gtest.h>

#include <optional>
#include <string_view>
#include <utility>

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

}  // namespace
}  // namespace zam_platform::testing
