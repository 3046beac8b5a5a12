#pragma once

#include <fmt/format.h>

#include <iterator>
#include <string>

#include "common/log.h"
#include "qor/utils/process_exception.h"

namespace zam_connector::common {

/// Logs code and text of the exception in flight at level 4 as the two arguments of `format`, and
/// gives the code that the library returns for its own failures, which is not the exception's. To
/// be called inside a catch block. The exception is looked at only when the level is on.
inline int CaughtCodeFailure(const LogSite& site,
                             fmt::format_string<const int&, const std::string&> format) noexcept {
    detail::LogWith(zor::logger::kLevelError, site, [&](fmt::memory_buffer& text) {
        const auto [code, caught] = qor::utils::ProcessException();
        fmt::format_to(std::back_inserter(text), format, code, caught);
    });
    return qel::kUnspecifiedError;
}

}  // namespace zam_connector::common
