#include "call_timeout.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <system_error>

#include "zam_connector/call_deadline.h"

namespace zamctl {
namespace {

constexpr char kVariable[] = "ZAM_CALL_TIMEOUT_MS";
constexpr std::int64_t kMostMilliseconds = std::numeric_limits<std::int32_t>::max();

/// As the library reads it; none when it is no good.
std::optional<std::chrono::milliseconds> ParseTimeout(const std::string& text) {
    std::int64_t milliseconds = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, milliseconds);
    if (error != std::errc() || stop != end || milliseconds < 0 ||
        milliseconds > kMostMilliseconds) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(milliseconds);
}

}  // namespace

std::string TakeWrongCallTimeout(const SystemView& system, const std::string& holds) {
    const std::optional<std::string> text = system.Variable(kVariable);
    if (!text || ParseTimeout(*text)) {
        return {};
    }
    ::unsetenv(kVariable);
    return fmt::format(
        "{} is '{}', which is no whole number from 0 to {}, and counts as not set: {}", kVariable,
        *text, kMostMilliseconds, holds);
}

void SetCallTimeout(const SystemView& system, std::chrono::milliseconds timeout) {
    const std::optional<std::string> text = system.Variable(kVariable);
    zam_connector::SetDefaultCallTimeout(
        (text ? ParseTimeout(*text) : std::nullopt).value_or(timeout));
}

}  // namespace zamctl
