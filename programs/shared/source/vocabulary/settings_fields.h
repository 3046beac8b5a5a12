#pragma once

#include <cstdint>
#include <span>
#include <variant>

#include "zam_connector/zam_connector_settings.h"

/// The connector's settings by the names that files and commands have for them. Thread-safe.

namespace zam_vocabulary {

inline constexpr char kReconnectDelayMin[] = "reconnect_delay_min_s";
inline constexpr char kReconnectDelayMax[] = "reconnect_delay_max_s";

/// A number or a flag.
using SettingsValue = std::variant<std::uint64_t, bool>;

/// One member of the settings.
struct SettingsField {
    const char* name;      ///< with its unit
    const char* unit;      ///< empty for flags
    const char* whenZero;  ///< what the value 0 means; empty when it means itself
    std::uint64_t most;    ///< largest number; without meaning for flags
    SettingsValue (*get)(const zam_connector::ZamConnectorSettings& settings);
    void (*set)(zam_connector::ZamConnectorSettings& settings, SettingsValue value);
};

/// All members, in their order; of static storage.
std::span<const SettingsField> SettingsFields() noexcept;

bool IsFlag(const SettingsField& field);

}  // namespace zam_vocabulary
