#include "common/log.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <string>
#include <string_view>

#include "qor/utils/exception_in_flight.h"
#include "qor/utils/process_exception.h"
#include "vd/call_bounds.h"

namespace zam_connector::common {
namespace {

/// What is shown of the exception in flight when there is no memory for its text.
constexpr std::size_t kShortTextBytes = 256;

std::string_view ShortText(const qor::utils::ExceptionInFlight& caught,
                           std::array<char, kShortTextBytes>& bytes) {
    const auto written =
        caught.own == nullptr
            ? fmt::format_to_n(bytes.data(), bytes.size(), "{}{}", caught.prefix, caught.what)
            : fmt::format_to_n(bytes.data(), bytes.size(), "{}. At {}({})", caught.what,
                               caught.own->File(), caught.own->Line());
    return {bytes.data(), std::min(written.size, bytes.size())};
}

/// Calls `use(code, text)` with what there is to say of the exception in flight.
template <typename Use>
void WithCaught(Use&& use) {
    std::pair<int, std::string> caught(qel::kUnspecifiedError, {});
    bool isWhole = true;
    try {
        caught = qor::utils::ProcessException();
    } catch (const std::bad_alloc&) {
        isWhole = false;  // in flight here is another exception than the one to tell of
    }
    if (isWhole) {
        use(caught.first, std::string_view(caught.second));
        return;
    }
    const qor::utils::ExceptionInFlight known = qor::utils::LookAtException();
    std::array<char, kShortTextBytes> bytes;
    use(known.code, ShortText(known, bytes));
}

}  // namespace

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
        WithCaught([&](int /*code*/, std::string_view caught) {
            detail::Format(text, format, fmt::make_format_args(caught));
        });
    });
    // What the call failed of is not what the transport did before.
    *VdZorTransport_LastStatus() = 0;
    return qel::kUnspecifiedError;
}

int CaughtCodeFailure(const LogSite& site,
                      fmt::format_string<const int&, const std::string&> format) noexcept {
    detail::LogWith(zor::logger::kLevelError, site, [&](fmt::memory_buffer& text) {
        WithCaught([&](int code, std::string_view caught) {
            detail::Format(text, format, fmt::make_format_args(code, caught));
        });
    });
    return qel::kUnspecifiedError;
}

}  // namespace zam_connector::common
