#include "data/app_info_json.h"

#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "json_text/base64.h"
#include "qel/utf.h"

namespace zam_service {
namespace {

using nlohmann::ordered_json;
using zam_connector::AppInfo;
using zam_connector::DynamicAppInfo;

constexpr int kIndent = 4;

constexpr auto kHealthNames =
    std::to_array<std::string_view>({"unknown", "good", "degraded", "failed"});

void Put(ordered_json& object, const std::string& name, std::string_view text) {
    if (qel::IsUtf8(text)) {
        object[name] = text;
    } else {
        object[name + "_base64"] = zam_json::EncodeBase64(text);
    }
}

struct TextField {
    const char* name;
    std::string AppInfo::*text;
};

constexpr TextField kTextFields[] = {
    {"product_id", &AppInfo::productId},
    {"product_name", &AppInfo::productName},
    {"product_version", &AppInfo::productVersion},
    {"build_number", &AppInfo::buildNumber},
    {"vendor_name", &AppInfo::vendorName},
    {"installation_id", &AppInfo::installationId},
    {"install_path", &AppInfo::installPath},
    {"license_id", &AppInfo::licenseId},
    {"update_channel", &AppInfo::updateChannel},
    {"device_model", &AppInfo::deviceModel},
    {"device_serial", &AppInfo::deviceSerial},
    {"os_name", &AppInfo::osName},
    {"os_version", &AppInfo::osVersion},
    {"architecture", &AppInfo::architecture},
    {"host_name", &AppInfo::hostName},
    {"support_url", &AppInfo::supportUrl},
};

ordered_json Components(const AppInfo& info) {
    ordered_json components = ordered_json::array();
    for (const zam_connector::AppComponent& component : info.components) {
        ordered_json& object = components.emplace_back(ordered_json::object());
        Put(object, "name", component.name);
        Put(object, "version", component.version);
    }
    return components;
}

ordered_json Capabilities(const AppInfo& info) {
    ordered_json capabilities = ordered_json::array();
    for (const std::string& name : info.capabilities) {
        if (qel::IsUtf8(name)) {
            capabilities.push_back(name);
        } else {
            capabilities.push_back({{"base64", zam_json::EncodeBase64(name)}});
        }
    }
    return capabilities;
}

}  // namespace

std::string WriteAppInfo(const AppInfo& info) {
    ordered_json object = ordered_json::object();
    for (const TextField& field : kTextFields) {
        Put(object, field.name, info.*field.text);
    }
    object["components"] = Components(info);
    object["capabilities"] = Capabilities(info);
    object["install_time"] = info.installTime.Count();
    object["last_update_time"] = info.lastUpdateTime.Count();
    object["license_expiry"] = info.licenseExpiry.Count();
    object["locale_id"] = info.localeId;
    object["protocol_version"] = info.protocolVersion;
    object["max_file_size_bytes"] = info.maxFileSizeBytes;
    return object.dump(kIndent) + "\n";
}

std::string WriteDynamicAppInfo(const DynamicAppInfo& info) {
    const ordered_json object = {
        {"uptime_s", info.uptime.count()},
        {"health", kHealthNames.at(static_cast<std::size_t>(info.health))},
        {"restart_required", info.restartRequired},
        {"reboot_required", info.rebootRequired},
        {"update_in_progress", info.updateInProgress},
    };
    return object.dump(kIndent) + "\n";
}

}  // namespace zam_service
