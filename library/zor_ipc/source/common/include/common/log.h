#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "qel/export.h"
#include "qel/result_code.h"
#include "vd/call_bounds.h"
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

/// Writes one record. Formatting is in one place for all callers: inlined, it is most of their
/// code.
ZAM_API void LogFormatted(int level, const LogSite& site, fmt::string_view format,
                          fmt::format_args arguments) noexcept;

/// Appends a formatted text.
ZAM_API void Format(fmt::memory_buffer& text, fmt::string_view format, fmt::format_args arguments);

/// Keeps what the transport came to in the thread's operation. A logger of an application's own may
/// make calls for a record.
class TransportStatusKeeper {
public:
    TransportStatusKeeper() noexcept : status_(*VdZorTransport_LastStatus()) {}
    TransportStatusKeeper(const TransportStatusKeeper&) = delete;
    TransportStatusKeeper& operator=(const TransportStatusKeeper&) = delete;
    ~TransportStatusKeeper() { *VdZorTransport_LastStatus() = status_; }

private:
    const std::int32_t status_;
};

/// Writes one record whose text `write(buffer)` makes; calls it only when the level is on.
template <typename Write>
void LogWith(int level, const LogSite& site, Write&& write) noexcept {
    const TransportStatusKeeper keeper;
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
    detail::LogFormatted(level, site, format, fmt::make_format_args(arguments...));
}

/// Logs at level 4 and gives the code that the library returns for its own failures.
template <typename... Arguments>
int Failure(const LogSite& site, fmt::format_string<const Arguments&...> format,
            const Arguments&... arguments) noexcept {
    Log<Arguments...>(zor::logger::kLevelError, site, format, arguments...);
    return qel::kUnspecifiedError;
}

/// `Failure` with the text of the exception in flight as the one argument of `format`. To be
/// called inside a catch block. The exception is looked at only when the level is on. What failed
/// of it did not fail of the transport, which the thread's last status then tells.
ZAM_API int CaughtFailure(const LogSite& site,
                          fmt::format_string<const std::string&> format) noexcept;

/// As `CaughtFailure`, with code and text of the exception as the two arguments of `format`. What
/// is returned is not the exception's code.
ZAM_API int CaughtCodeFailure(const LogSite& site,
                              fmt::format_string<const int&, const std::string&> format) noexcept;

}  // namespace zam_connector::common
