#pragma once

#include <string>

#include "zam_connector/app_info.h"
#include "zam_connector/dynamic_app_info.h"

/// What a product tells about itself, as JSON for people. A text whose bytes are no UTF-8 stands in
/// Base64, under its name with `_base64` behind it; such a capability is an object with `base64`.
/// Thread-safe.

namespace zam_json {

std::string WriteAppInfo(const zam_connector::AppInfo& info);
std::string WriteDynamicAppInfo(const zam_connector::DynamicAppInfo& info);

/// Reads `text`, which errors call `name`. A member that is missing is empty, or 0. Throws
/// `JsonError`, also for texts that do not fit into a request.
zam_connector::AppInfo ReadAppInfo(const std::string& name, const std::string& text);

/// The same; a health that is missing is unknown.
zam_connector::DynamicAppInfo ReadDynamicAppInfo(const std::string& name, const std::string& text);

}  // namespace zam_json
