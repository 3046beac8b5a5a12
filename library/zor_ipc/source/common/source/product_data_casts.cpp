#include "common/product_data_casts.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "common/arena.h"

namespace zam_connector::common {
namespace {

using IdlAppInfo = qx_zam_connector_ZamTypes_AppInfo;

/// A text of the record and its place in the IDL form.
struct TextField {
    const char* name;
    std::string AppInfo::*text;
    vd_bytes IdlAppInfo::*stretch;
};

constexpr std::array kTextFields = std::to_array<TextField>({
    {"productId", &AppInfo::productId, &IdlAppInfo::productId},
    {"productName", &AppInfo::productName, &IdlAppInfo::productName},
    {"productVersion", &AppInfo::productVersion, &IdlAppInfo::productVersion},
    {"buildNumber", &AppInfo::buildNumber, &IdlAppInfo::buildNumber},
    {"vendorName", &AppInfo::vendorName, &IdlAppInfo::vendorName},
    {"installationId", &AppInfo::installationId, &IdlAppInfo::installationId},
    {"installPath", &AppInfo::installPath, &IdlAppInfo::installPath},
    {"licenseId", &AppInfo::licenseId, &IdlAppInfo::licenseId},
    {"updateChannel", &AppInfo::updateChannel, &IdlAppInfo::updateChannel},
    {"deviceModel", &AppInfo::deviceModel, &IdlAppInfo::deviceModel},
    {"deviceSerial", &AppInfo::deviceSerial, &IdlAppInfo::deviceSerial},
    {"osName", &AppInfo::osName, &IdlAppInfo::osName},
    {"osVersion", &AppInfo::osVersion, &IdlAppInfo::osVersion},
    {"architecture", &AppInfo::architecture, &IdlAppInfo::architecture},
    {"hostName", &AppInfo::hostName, &IdlAppInfo::hostName},
    {"supportUrl", &AppInfo::supportUrl, &IdlAppInfo::supportUrl},
});

AppHealth CheckedHealth(AppHealth health) {
    if (health > AppHealth::Failed) {
        throw std::out_of_range(
            fmt::format("health: {} is unknown", static_cast<unsigned>(health)));
    }
    return health;
}

}  // namespace

qx_zam_connector_ZamTypes_AppInfo CastToVd(const AppInfo& info, vd_arena* arena) {
    ArenaWriter writer(arena);
    IdlAppInfo result{};
    for (const TextField& field : kTextFields) {
        result.*field.stretch = writer.PutText(info.*field.text, field.name);
    }
    std::vector<std::string_view> names;
    std::vector<std::string_view> versions;
    for (const AppComponent& component : info.components) {
        names.emplace_back(component.name);
        versions.emplace_back(component.version);
    }
    result.componentNames = writer.PutTexts(names, "components");
    result.componentVersions = writer.PutTexts(versions, "components");
    result.capabilities =
        writer.PutTexts({info.capabilities.begin(), info.capabilities.end()}, "capabilities");
    result.installTime = info.installTime.Count();
    result.lastUpdateTime = info.lastUpdateTime.Count();
    result.licenseExpiry = info.licenseExpiry.Count();
    result.maxFileSizeBytes = info.maxFileSizeBytes;
    result.localeId = info.localeId;
    result.protocolVersion = info.protocolVersion;
    return result;
}

AppInfo CastFromVd(const qx_zam_connector_ZamTypes_AppInfo& info, const vd_arena* arena) {
    const ArenaReader reader(arena);
    AppInfo result;
    for (const TextField& field : kTextFields) {
        result.*field.text = reader.Text(info.*field.stretch, field.name);
    }
    std::vector<std::string> names = reader.Texts(info.componentNames, "components");
    std::vector<std::string> versions = reader.Texts(info.componentVersions, "components");
    if (names.size() != versions.size()) {
        throw std::invalid_argument(
            fmt::format("components: {} names and {} versions", names.size(), versions.size()));
    }
    for (std::size_t index = 0; index < names.size(); ++index) {
        result.components.push_back({std::move(names[index]), std::move(versions[index])});
    }
    result.capabilities = reader.Texts(info.capabilities, "capabilities");
    result.installTime = qor::types::Timestamp(info.installTime);
    result.lastUpdateTime = qor::types::Timestamp(info.lastUpdateTime);
    result.licenseExpiry = qor::types::Timestamp(info.licenseExpiry);
    result.maxFileSizeBytes = info.maxFileSizeBytes;
    result.localeId = info.localeId;
    result.protocolVersion = info.protocolVersion;
    return result;
}

qx_zam_connector_ZamTypes_DynamicAppInfo CastToVd(const DynamicAppInfo& info) {
    const auto flags =
        static_cast<std::uint8_t>((info.restartRequired ? kQxAppRestartRequired : 0U) |
                                  (info.rebootRequired ? kQxAppRebootRequired : 0U) |
                                  (info.updateInProgress ? kQxAppUpdateInProgress : 0U));
    return {
        .uptimeS = info.uptime.count(),
        .health = static_cast<std::uint8_t>(CheckedHealth(info.health)),
        .flags = flags,
        .reserved = 0,
    };
}

DynamicAppInfo CastFromVd(const qx_zam_connector_ZamTypes_DynamicAppInfo& info) {
    return {
        .uptime = std::chrono::duration<std::uint32_t>(info.uptimeS),
        .health = CheckedHealth(static_cast<AppHealth>(info.health)),
        .restartRequired = (info.flags & kQxAppRestartRequired) != 0,
        .rebootRequired = (info.flags & kQxAppRebootRequired) != 0,
        .updateInProgress = (info.flags & kQxAppUpdateInProgress) != 0,
    };
}

}  // namespace zam_connector::common
