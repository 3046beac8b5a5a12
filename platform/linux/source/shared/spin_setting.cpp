#include "zam_platform/spin_setting.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <charconv>
#include <cstdlib>

#include "shared/shared_file.h"
#include "zam_platform/report.h"

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "spin_setting";
constexpr char kVariable[] = "ZAM_SPIN";

constexpr bool kHasFastChannel = ZAM_FAST_CHANNEL != 0;

struct Setting {
    std::chrono::nanoseconds cap;
    const char* wrong;  ///< what the variable says that is none; null: nothing
};

Setting Read(std::optional<std::chrono::microseconds> wished) noexcept {
    if (!kHasFastChannel) {
        return {std::chrono::nanoseconds(0), nullptr};
    }
    const char* const text = wished ? nullptr : ::secure_getenv(kVariable);
    const auto spin = text != nullptr ? ParseSpin(text) : wished;
    const bool isAlone = ::sysconf(_SC_NPROCESSORS_ONLN) == 1;
    return {isAlone ? std::chrono::microseconds(0) : spin.value_or(kMaxSpin),
            text != nullptr && !spin ? text : nullptr};
}

void Warn(const Setting& setting) noexcept {
    if (setting.wrong != nullptr) {
        ReportText(zor::logger::kLevelWarning, kSourceFile, "SpinCap", [&setting] {
            return fmt::format("{} is '{}', not a number of microseconds from 0 to {}", kVariable,
                               setting.wrong, kMaxSpin.count());
        });
    }
}

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
    const Setting setting = Read(wished);
    Warn(setting);
    const bool isOff = setting.cap.count() == 0 || IsCommitStrict();
    return isOff ? std::chrono::nanoseconds(0) : setting.cap;
}

std::chrono::nanoseconds ClientSpinCap() noexcept {
    // The warning is given behind what makes a thread wait: a logger may make calls of its own.
    static const Setting setting = Read({});
    static std::atomic<bool> isToWarn{true};
    if (setting.wrong != nullptr && isToWarn.exchange(false)) {
        Warn(setting);
    }
    return setting.cap;
}

}  // namespace zam_platform
