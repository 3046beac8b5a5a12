#pragma once

#include <string>

#include "zam_connector/app_info.h"
#include "zam_connector/dynamic_app_info.h"

namespace zam_service {

/// What a product told about itself, as JSON for people. A text whose bytes are no UTF-8 stands in
/// Base64, under its name with `_base64` behind it; such a capability is an object with `base64`.
std::string WriteAppInfo(const zam_connector::AppInfo& info);
std::string WriteDynamicAppInfo(const zam_connector::DynamicAppInfo& info);

}  // namespace zam_service
