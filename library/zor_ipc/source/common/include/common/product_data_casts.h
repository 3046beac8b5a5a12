#pragma once

#include "qel/export.h"
#include "qx/zam_types.h"
#include "zam_connector/app_info.h"
#include "zam_connector/dynamic_app_info.h"

/// Conversions of what the product tells about itself to and from its IDL forms. Thread-safe as
/// long as nobody else uses the arena.

namespace zam_connector::common {

/// Puts the texts into `arena`. Throws `std::length_error` when they do not fit.
ZAM_API qx_zam_connector_ZamTypes_AppInfo CastToVd(const AppInfo& info, vd_arena* arena);

/// Throws `std::out_of_range` for a stretch outside the arena's bytes in use, and
/// `std::invalid_argument` for components whose names and versions differ in number.
ZAM_API AppInfo CastFromVd(const qx_zam_connector_ZamTypes_AppInfo& info, const vd_arena* arena);

/// Throws `std::out_of_range` for a health that is no enumerator.
ZAM_API qx_zam_connector_ZamTypes_DynamicAppInfo CastToVd(const DynamicAppInfo& info);

/// Throws `std::out_of_range` for an unknown health.
ZAM_API DynamicAppInfo CastFromVd(const qx_zam_connector_ZamTypes_DynamicAppInfo& info);

}  // namespace zam_connector::common
