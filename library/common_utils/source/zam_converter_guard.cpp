#include "zam_converter_guard.h"

#include <string_view>

#include "common/caught.h"
#include "qel/result_code.h"

namespace zam_connector::zam_converter {

void LogCaught(const common::LogSite& site, FailureFormat format) noexcept {
    common::detail::LogWith(zor::logger::kLevelError, site, [&](fmt::memory_buffer& text) {
        const common::Caught caught;
        const std::string_view code = qel::ResultCodeMessage(caught.Code());
        const std::string_view message = caught.Text();
        common::detail::Format(text, format, fmt::make_format_args(code, message));
    });
}

}  // namespace zam_connector::zam_converter
