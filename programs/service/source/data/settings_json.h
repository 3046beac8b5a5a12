#pragma once

#include <string>

#include "json_text/json_document.h"
#include "zam_connector/zam_connector_settings.h"

namespace zam_service {

inline constexpr char kSettingsFile[] = "connector_settings.json";

/// True when the smallest reconnect delay does not exceed the largest.
bool AreConsistent(const zam_connector::ZamConnectorSettings& settings) noexcept;

/// Reads settings; a field that is missing has its default. Throws `zam_json::JsonError`.
zam_connector::ZamConnectorSettings ReadSettings(const zam_json::JsonValue& root);

/// All fields, for people to edit.
std::string WriteSettings(const zam_connector::ZamConnectorSettings& settings);

}  // namespace zam_service
