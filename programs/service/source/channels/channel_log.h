#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// What a table of channels tells the log. `sort` names the channels. Thread-safe.

namespace zam_service {

void LogUnknownChannel(std::string_view sort, std::int64_t id);
void LogEndedSession(std::string_view sort, std::size_t channels);
void LogUserFull(std::string_view sort, uid_t user, std::size_t limit);
void LogCrowdedOut(std::string_view sort, std::int64_t id, std::size_t limit);
void LogIdle(std::string_view sort, std::int64_t id, std::chrono::milliseconds limit);

}  // namespace zam_service
