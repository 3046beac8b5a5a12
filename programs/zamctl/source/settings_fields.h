#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "zam_connector/zam_connector_settings.h"

namespace zamctl {

/// A number or a flag.
using SettingsValue = std::variant<std::uint64_t, bool>;

/// "900" or "true".
std::string ShowValue(SettingsValue value);

/// One member of the settings, by the name that people use.
struct SettingsField {
    const char* name;      ///< with its unit
    const char* unit;      ///< empty for flags
    const char* whenZero;  ///< what the value 0 means; empty when it means itself
    std::uint64_t most;    ///< largest number; without meaning for flags
    SettingsValue (*get)(const zam_connector::ZamConnectorSettings& settings);
    void (*set)(zam_connector::ZamConnectorSettings& settings, SettingsValue value);
};

/// All members, in their order.
std::span<const SettingsField> SettingsFields();

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
