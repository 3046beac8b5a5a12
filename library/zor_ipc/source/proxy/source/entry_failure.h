#pragma once

#include <string>
#include <utility>

#include "common/log.h"
#include "qor/utils/process_exception.h"

namespace zam_connector::proxy {

/// Logs the text of the exception in flight and gives its code, which may be 0. To be called inside
/// a catch block.
inline int EntryFailure(const common::LogSite& site) noexcept {
    std::pair<int, std::string> caught(qel::kUnspecifiedError, std::string());
    try {
        caught = qor::utils::ProcessException();
    } catch (...) {
        // No memory for the text.
    }
    common::Log(zor::logger::kLevelError, site, "Create zam connector proxy: {}", caught.second);
    return caught.first;
}

}  // namespace zam_connector::proxy
