#pragma once

#include "common/caught.h"
#include "common/log.h"

namespace zam_connector::proxy {

/// Logs the text of the exception in flight and gives its code, which may be 0. To be called inside
/// a catch block.
inline int EntryFailure(const common::LogSite& site) noexcept {
    const common::Caught caught;
    common::Log(zor::logger::kLevelError, site, "Create zam connector proxy: {}", caught.Text());
    return caught.Code();
}

}  // namespace zam_connector::proxy
