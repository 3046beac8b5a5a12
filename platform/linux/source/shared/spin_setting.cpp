#include "zam_platform/spin_setting.h"

#include <fmt/format.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>

#include "zam_platform/report.h"

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "spin_setting";
constexpr char kVariable[] = "ZAM_SPIN";

constexpr bool kHasFastChannel = ZAM_FAST_CHANNEL != 0;

}  // namespace

std::optional<std::chrono::microseconds> ParseSpin(std::string_view text) noexcept {
    unsigned value = 0;
    const char* const end = text.data() + text.size();
    const auto [behind, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || behind != end || value > kMaxSpin.count()) {
        return std::nullopt;
    }
    return std::chrono::microseconds(value);
}

bool HasFastChannel() noexcept {
    return kHasFastChannel;
}

std::chrono::nanoseconds SpinCap(std::optional<std::chrono::microseconds> wished) noexcept {
    if (!kHasFastChannel) {
        return std::chrono::nanoseconds(0);
    }
    std::chrono::microseconds cap = wished.value_or(kMaxSpin);
    if (const char* const text = wished ? nullptr : ::secure_getenv(kVariable)) {
        if (const auto spin = ParseSpin(text)) {
            cap = *spin;
        } else {
            ReportText(zor::logger::kLevelWarning, kSourceFile, "SpinCap", [text] {
                return fmt::format("{} is '{}', not a number of microseconds from 0 to {}",
                                   kVariable, text, kMaxSpin.count());
            });
        }
    }
    return ::sysconf(_SC_NPROCESSORS_ONLN) == 1 ? std::chrono::microseconds(0) : cap;
}

std::chrono::nanoseconds ClientSpinCap() noexcept {
    static const std::chrono::nanoseconds cap = SpinCap();
    return cap;
}

}  // namespace zam_platform
