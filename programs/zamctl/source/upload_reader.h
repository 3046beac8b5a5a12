#pragma once

#include <vector>

#include "input_file.h"
#include "zam_connector/app_eula.h"
#include "zam_connector/app_info.h"
#include "zam_connector/app_updates.h"
#include "zam_connector/dynamic_app_info.h"
#include "zam_connector/zam_product_settings.h"

/// What is to be uploaded, out of the JSON that the service stores uploads as. Every function
/// throws `UsageError`, with name, line, column and JSON pointer, for what is no such JSON and for
/// what could never be sent. No I/O; thread-safe.

namespace zamctl {

zam_connector::AppInfo ReadAppInfo(const Input& input);
zam_connector::DynamicAppInfo ReadDynamicAppInfo(const Input& input);
std::vector<zam_connector::AppEula> ReadEulas(const Input& input);
zam_connector::AppUpdates ReadUpdates(const Input& input);
zam_connector::ZamProductSettings ReadProductSettings(const Input& input);

}  // namespace zamctl
