#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vocabulary/settings_fields.h"
#include "zam_connector/zam_connector_settings.h"

namespace zamctl {

using zam_vocabulary::SettingsField;
using zam_vocabulary::SettingsFields;
using zam_vocabulary::SettingsValue;

/// "900" or "true".
std::string ShowValue(SettingsValue value);

/// A new value for a member; `field` is of `SettingsFields`.
struct SettingsChange {
    const SettingsField* field;
    SettingsValue value;
};

/// Reads NAME=VALUE. Throws `UsageError` for an unknown name and a value of the wrong kind or out
/// of range.
SettingsChange ParseChange(std::string_view assignment);

/// Reads the object that `settings get --json` prints; its member "result" is passed over, and
/// settings that are not in it are left as they are. `source` names it in errors, which are
/// `UsageError`s.
std::vector<SettingsChange> ParseDocument(const std::string& text, const std::string& source);

/// The settings as a table with units.
std::string SettingsTable(const zam_connector::ZamConnectorSettings& settings);

}  // namespace zamctl
