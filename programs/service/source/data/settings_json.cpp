#include "data/settings_json.h"

#include <fmt/format.h>

#include <cstdint>
#include <string_view>
#include <variant>
#include <vector>

#include "record_json/json_writer.h"
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
    struct Put {
        void operator()(std::uint64_t number) const { json.Number(number); }
        void operator()(bool flag) const { json.Flag(flag); }

        zam_json::JsonWriter& json;
    };
    zam_json::JsonWriter json;
    json.BeginObject();
    for (const SettingsField& field : SettingsFields()) {
        json.Name(field.name);
        std::visit(Put{json}, field.get(settings));
    }
    return json.End().Take();
}

}  // namespace zam_service
