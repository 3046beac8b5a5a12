#include "call_timeout.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <system_error>

#include "zam_connector/call_deadline.h"

namespace zamctl {
namespace {

/// As the library reads it; what is no number counts as not set.
std::optional<std::chrono::milliseconds> TimeoutOf(const SystemView& system) {
    const std::optional<std::string> text = system.Variable("ZAM_CALL_TIMEOUT_MS");
    if (!text) {
        return std::nullopt;
    }
    std::int64_t milliseconds = 0;
    const char* const end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, milliseconds);
    if (error != std::errc() || stop != end || milliseconds < 0 ||
        milliseconds > std::numeric_limits<std::int32_t>::max()) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(milliseconds);
}

}  // namespace

void SetCallTimeout(const SystemView& system, std::chrono::milliseconds timeout) {
    zam_connector::SetDefaultCallTimeout(TimeoutOf(system).value_or(timeout));
}

}  // namespace zamctl
