#include "data/settings_json.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string_view>
#include <variant>
#include <vector>

#include "vocabulary/settings_fields.h"

namespace zam_service {

using zam_json::JsonValue;

namespace {

using zam_connector::ZamConnectorSettings;
using zam_vocabulary::kReconnectDelayMax;
using zam_vocabulary::kReconnectDelayMin;
using zam_vocabulary::SettingsField;
using zam_vocabulary::SettingsFields;
using zam_vocabulary::SettingsValue;

SettingsValue ReadValue(const SettingsField& field, const JsonValue& value) {
    if (zam_vocabulary::IsFlag(field)) {
        return value.Boolean();
    }
    return value.Unsigned(0, field.most);
}

}  // namespace

bool AreConsistent(const ZamConnectorSettings& settings) noexcept {
    return settings.reconnectDelayMin <= settings.reconnectDelayMax;
}

ZamConnectorSettings ReadSettings(const JsonValue& root) {
    std::vector<std::string_view> names;
    for (const SettingsField& field : SettingsFields()) {
        names.emplace_back(field.name);
    }
    root.CheckMembers(names);
    ZamConnectorSettings settings;
    for (const SettingsField& field : SettingsFields()) {
        if (const auto member = root.Find(field.name)) {
            field.set(settings, ReadValue(field, *member));
        }
    }
    if (!AreConsistent(settings)) {
        // One of the two is in the file: the defaults agree with each other.
        const auto least = root.Find(kReconnectDelayMin);
        (least ? *least : root.At(kReconnectDelayMax))
            .Fail(fmt::format("{} is {}, allowed is at most {}, which is {}", kReconnectDelayMin,
                              settings.reconnectDelayMin.count(), kReconnectDelayMax,
                              settings.reconnectDelayMax.count()));
    }
    return settings;
}

std::string WriteSettings(const ZamConnectorSettings& settings) {
    nlohmann::ordered_json tree;
    for (const SettingsField& field : SettingsFields()) {
        std::visit([&](auto value) { tree[field.name] = value; }, field.get(settings));
    }
    return tree.dump(4) + "\n";
}

}  // namespace zam_service
