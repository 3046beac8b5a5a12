#include "zam_converter_guard.h"

#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "qel/result_code.h"
#include "qor/utils/process_exception.h"

namespace zam_connector::zam_converter {
namespace {

/// What there is to say of the exception in flight when there is no memory to say it.
constexpr std::string_view kNoMemory = "std::exception: std::bad_alloc";

}  // namespace

void LogCaught(const common::LogSite& site, FailureFormat format) noexcept {
    common::detail::LogWith(zor::logger::kLevelError, site, [&](fmt::memory_buffer& text) {
        std::pair<int, std::string> caught(qel::kUnspecifiedError, {});
        std::string_view message = kNoMemory;
        try {
            caught = qor::utils::ProcessException();
            message = caught.second;
        } catch (const std::bad_alloc&) {
            // The message then tells of this failure, the one before it being lost.
        }
        const std::string_view code = qel::ResultCodeMessage(caught.first);
        common::detail::Format(text, format, fmt::make_format_args(code, message));
    });
}

}  // namespace zam_connector::zam_converter
