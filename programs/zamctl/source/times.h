#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// Points in time and stretches of it as text.

namespace zamctl {

using WallTime = std::chrono::system_clock::time_point;

/// "2026-01-31T12:34:56.789Z".
std::string UtcText(WallTime time);

/// "2026-01-31 12:34:56.789", where the machine is.
std::string LocalText(WallTime time);

/// Whole seconds since 1970 as "2026-01-31T12:34:56Z"; as the number when no year of four digits
/// holds them.
std::string UtcSecondsText(std::int64_t seconds);

/// Seconds since 1970 from "2026-01-31T12:34:56Z", "2026-01-31" or the number itself. Throws
/// `UsageError`, which names `name`.
std::int64_t ParseUtcSeconds(const std::string& name, const std::string& text);

/// "0.250 s", "75.3 s", "12 min 5 s", "3 h 4 min".
std::string DurationText(std::chrono::nanoseconds duration);

}  // namespace zamctl
