#pragma once

#include <fmt/format.h>

#include <iterator>
#include <string_view>
#include <utility>

#include "qel/result_code.h"
#include "qor/utils/process_exception.h"
#include "zor/logger.h"

/// Log records of the library. Every function here asks the root logger first and does nothing,
/// formatting included, when the level is off; whatever throws in them ends the process.
/// Thread-safe.

namespace zam_connector::common {

/// Where a record comes from: stem of the source file, line and method name, as recorded.
struct LogSite {
    const char* file;
    int line;
    const char* function;
};

/// A site at the caller's own line.
constexpr LogSite Here(const char* file, const char* function,
                       int line = __builtin_LINE()) noexcept {
    return {file, line, function};
}

namespace detail {

/// Writes one record whose text `write(buffer)` makes; calls it only when the level is on.
template <typename Write>
void LogWith(int level, const LogSite& site, Write&& write) noexcept {
    zor::logger::ZORLogger& logger = zor::logger::ZORLogger::RootLogger();
    if (!logger.IsEnabled(level)) {
        return;
    }
    fmt::memory_buffer text;
    std::forward<Write>(write)(text);
    logger.LogImpl(level, site.file, site.line, site.function,
                   std::string_view(text.data(), text.size()));
}

}  // namespace detail

template <typename... Arguments>
void Log(int level, const LogSite& site, fmt::format_string<const Arguments&...> format,
         const Arguments&... arguments) noexcept {
    detail::LogWith(level, site, [&](fmt::memory_buffer& text) {
        fmt::format_to(std::back_inserter(text), format, arguments...);
    });
}

/// Logs at level 4 and gives the code that the library returns for its own failures.
template <typename... Arguments>
int Failure(const LogSite& site, fmt::format_string<const Arguments&...> format,
            const Arguments&... arguments) noexcept {
    Log<Arguments...>(zor::logger::kLevelError, site, format, arguments...);
    return qel::kUnspecifiedError;
}

/// `Failure` with the text of the exception in flight as the one argument of `format`. To be
/// called inside a catch block. The exception is looked at only when the level is on.
inline int CaughtFailure(const LogSite& site,
                         fmt::format_string<const std::string&> format) noexcept {
    detail::LogWith(zor::logger::kLevelError, site, [&](fmt::memory_buffer& text) {
        const std::string caught = qor::utils::ProcessException().second;
        fmt::format_to(std::back_inserter(text), format, caught);
    });
    return qel::kUnspecifiedError;
}

}  // namespace zam_connector::common
