#pragma once

#include <string>

#include "data/json_file.h"
#include "zam_connector/zam_connector_settings.h"

namespace zam_service {

inline constexpr char kSettingsFile[] = "connector_settings.json";

/// True when the smallest reconnect delay does not exceed the largest.
bool AreConsistent(const zam_connector::ZamConnectorSettings& settings) noexcept;

/// Reads settings; a field that is missing has its default. Throws `JsonError`.
zam_connector::ZamConnectorSettings ReadSettings(const JsonValue& root);

/// All fields, for people to edit.
std::string WriteSettings(const zam_connector::ZamConnectorSettings& settings);

}  // namespace zam_service
