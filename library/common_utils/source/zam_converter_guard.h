#pragma once

#include <fmt/format.h>

#include <optional>
#include <string_view>
#include <utility>

#include "common/log.h"

namespace zam_connector::zam_converter {

/// The record of an exception: "OPERATION failed with exception [{} : {}]", for the text of the
/// result code and the message.
using FailureFormat = fmt::format_string<const std::string_view&, const std::string_view&>;

/// Logs the exception in flight. To be called inside a catch block. Gets along without memory.
/// Thread-safe.
void LogCaught(const common::LogSite& site, FailureFormat format) noexcept;

/// What `body`, the whole body of a converter, returns; an empty optional, and a record, when it
/// throws.
template <typename Body>
auto Guarded(const common::LogSite& site, FailureFormat format, Body&& body) noexcept
    -> decltype(body()) {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        LogCaught(site, format);
        return std::nullopt;
    }
}

/// Logs `text` and gives the empty optional that the converter returns: for failures that have a
/// text of their own, and no other record.
inline std::nullopt_t LogFailed(const common::LogSite& site, const char* text) noexcept {
    common::Log(zor::logger::kLevelError, site, "{}", text);
    return std::nullopt;
}

}  // namespace zam_connector::zam_converter
