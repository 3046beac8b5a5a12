#pragma once

#include <optional>
#include <utility>

#include "common/log.h"

namespace zam_connector::zam_converter {

/// Logs the exception in flight as "OPERATION failed with exception [CODE TEXT : MESSAGE]". To be
/// called inside a catch block. Gets along without memory. Thread-safe.
void LogCaught(const common::LogSite& site, const char* operation) noexcept;

/// What `body`, the whole body of a converter, returns; an empty optional, and a record, when it
/// throws. `operation` is the converter's name in the record.
template <typename Body>
auto Guarded(const common::LogSite& site, const char* operation, Body&& body) noexcept
    -> decltype(body()) {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        LogCaught(site, operation);
        return std::nullopt;
    }
}

/// For the converters whose name in the record is the name of the function.
template <typename Body>
auto Guarded(const common::LogSite& site, Body&& body) noexcept -> decltype(body()) {
    return Guarded(site, site.function, std::forward<Body>(body));
}

/// Logs `text` and gives the empty optional that the converter returns: for failures that have a
/// text of their own, and no other record.
inline std::nullopt_t LogFailed(const common::LogSite& site, const char* text) noexcept {
    common::Log(zor::logger::kLevelError, site, "{}", text);
    return std::nullopt;
}

}  // namespace zam_connector::zam_converter
