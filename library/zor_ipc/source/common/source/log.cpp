#include "common/log.h"

#include "qor/utils/process_exception.h"
#include "vd/call_bounds.h"

namespace zam_connector::common {

void detail::Format(fmt::memory_buffer& text, fmt::string_view format, fmt::format_args arguments) {
    fmt::vformat_to(fmt::appender(text), format, arguments);
}

void detail::LogFormatted(int level, const LogSite& site, fmt::string_view format,
                          fmt::format_args arguments) noexcept {
    LogWith(level, site, [&](fmt::memory_buffer& text) { Format(text, format, arguments); });
}

int CaughtFailure(const LogSite& site, fmt::format_string<const std::string&> format) noexcept {
    detail::LogWith(zor::logger::kLevelError, site, [&](fmt::memory_buffer& text) {
        const std::string caught = qor::utils::ProcessException().second;
        detail::Format(text, format, fmt::make_format_args(caught));
    });
    // What the call failed of is not what the transport did before.
    *VdZorTransport_LastStatus() = 0;
    return qel::kUnspecifiedError;
}

int CaughtCodeFailure(const LogSite& site,
                      fmt::format_string<const int&, const std::string&> format) noexcept {
    detail::LogWith(zor::logger::kLevelError, site, [&](fmt::memory_buffer& text) {
        const auto caught = qor::utils::ProcessException();
        detail::Format(text, format, fmt::make_format_args(caught.first, caught.second));
    });
    return qel::kUnspecifiedError;
}

}  // namespace zam_connector::common
