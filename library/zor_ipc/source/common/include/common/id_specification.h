#pragma once

#include "qel/export.h"
#include "zuv/path.h"

namespace zam_connector::common::meta {

/// How paths are written between the library and the service: levels end with "/", and a key holds
/// neither that nor a backslash, a double quote, an apostrophe, a backtick or a percent sign;
/// positions have no limit. Built on first use. Thread-safe.
ZAM_API const zuv::IdSpec& IdSpecification();

}  // namespace zam_connector::common::meta
