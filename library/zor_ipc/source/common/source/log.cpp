#include "common/log.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <string_view>

#include "common/caught.h"
#include "vd/call_bounds.h"

namespace zam_connector::common {

void detail::Format(fmt::memory_buffer& text, fmt::string_view format, fmt::format_args arguments) {
    const std::size_t before = text.size();
    try {
        fmt::vformat_to(fmt::appender(text), format, arguments);
    } catch (const std::bad_alloc&) {
        // What fits the buffer as it is; an argument's own formatter that fails fails again.
        const std::size_t room = text.capacity() - before;
        const auto written = fmt::vformat_to_n(text.data() + before, room, format, arguments);
        text.try_resize(before + std::min(written.size, room));
    }
}

void detail::LogFormatted(int level, const LogSite& site, fmt::string_view format,
                          fmt::format_args arguments) noexcept {
    LogWith(level, site, [&](fmt::memory_buffer& text) { Format(text, format, arguments); });
}

int CaughtFailure(const LogSite& site, fmt::format_string<const std::string&> format) noexcept {
    detail::LogWith(zor::logger::kLevelError, site, [&](fmt::memory_buffer& text) {
        const Caught caught;
        const std::string_view message = caught.Text();
        detail::Format(text, format, fmt::make_format_args(message));
    });
    // What the call failed of is not what the transport did before.
    *VdZorTransport_LastStatus() = 0;
    return qel::kUnspecifiedError;
}

int CaughtCodeFailure(const LogSite& site,
                      fmt::format_string<const int&, const std::string&> format) noexcept {
    detail::LogWith(zor::logger::kLevelError, site, [&](fmt::memory_buffer& text) {
        const Caught caught;
        const int code = caught.Code();
        const std::string_view message = caught.Text();
        detail::Format(text, format, fmt::make_format_args(code, message));
    });
    *VdZorTransport_LastStatus() = 0;
    return qel::kUnspecifiedError;
}

}  // namespace zam_connector::common
