#include "record_json/app_info_json.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "common/arena.h"
#include "common/product_data_casts.h"
#include "json_text/base64.h"
#include "json_text/json_document.h"
#include "qel/utf.h"
#include "qx/product_data_holder.h"
#include "record_json/json_writer.h"

namespace zam_json {
namespace {

using zam_connector::AppInfo;
using zam_connector::DynamicAppInfo;

/// What texts may take in a request, and what each component and capability takes besides its own:
/// an offset and a length of 32 bits for each text. The tables of these begin at multiples of 4.
constexpr std::uint32_t kMaxTextBytes = qx_zam_connector_ProductDataHolder_SetAppInfo_request_arena;
constexpr std::size_t kComponentBytes = 16;
constexpr std::size_t kCapabilityBytes = 8;
constexpr std::size_t kTableAlignment = 4;
constexpr std::size_t kTables = 3;  // of components' names, of their versions, of capabilities

constexpr char kBase64Suffix[] = "_base64";
constexpr char kComponents[] = "components";
constexpr char kCapabilities[] = "capabilities";
constexpr char kInstallTime[] = "install_time";
constexpr char kLastUpdateTime[] = "last_update_time";
constexpr char kLicenseExpiry[] = "license_expiry";
constexpr char kLocaleId[] = "locale_id";
constexpr char kProtocolVersion[] = "protocol_version";
constexpr char kMaxFileSize[] = "max_file_size_bytes";
constexpr char kUptime[] = "uptime_s";
constexpr char kHealth[] = "health";
constexpr char kRestartRequired[] = "restart_required";
constexpr char kRebootRequired[] = "reboot_required";
constexpr char kUpdateInProgress[] = "update_in_progress";

constexpr auto kHealthNames =
    std::to_array<std::string_view>({"unknown", "good", "degraded", "failed"});

void Put(JsonWriter& json, const std::string& name, std::string_view text) {
    if (qel::IsUtf8(text)) {
        json.Name(name).Text(text);
    } else {
        json.Name(name + kBase64Suffix).Text(EncodeBase64(text));
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

void PutComponents(JsonWriter& json, const AppInfo& info) {
    json.Name(kComponents).BeginArray();
    for (const zam_connector::AppComponent& component : info.components) {
        json.BeginObject();
        Put(json, "name", component.name);
        Put(json, "version", component.version);
        json.End();
    }
    json.End();
}

void PutCapabilities(JsonWriter& json, const AppInfo& info) {
    json.Name(kCapabilities).BeginArray();
    for (const std::string& name : info.capabilities) {
        if (qel::IsUtf8(name)) {
            json.Text(name);
        } else {
            json.BeginObject().Name("base64").Text(EncodeBase64(name)).End();
        }
    }
    json.End();
}

/// Bytes that stand in Base64.
std::string Decode(const JsonValue& value) {
    auto bytes = value.IsText() ? DecodeBase64(value.Text()) : std::nullopt;
    if (!bytes) {
        value.Refuse("a text in Base64, with padding and no stray bits");
    }
    return *std::move(bytes);
}

/// The member that holds a text, in whichever form.
std::optional<JsonValue> FindText(const JsonValue& object, const std::string& name) {
    auto plain = object.Find(name);
    return plain ? plain : object.Find(name + kBase64Suffix);
}

std::string ReadText(const JsonValue& object, const std::string& name) {
    const auto plain = object.Find(name);
    const auto coded = object.Find(name + kBase64Suffix);
    if (plain && coded) {
        coded->Fail(fmt::format("stands beside {}, which is the same text", Quoted(name)));
    }
    if (plain) {
        return plain->Text();
    }
    return coded ? Decode(*coded) : std::string();
}

std::vector<zam_connector::AppComponent> ReadComponents(const JsonValue& root) {
    std::vector<zam_connector::AppComponent> components;
    if (const auto list = root.Find(kComponents)) {
        for (const JsonValue& value : list->Elements(0, kMaxTextBytes / kComponentBytes)) {
            value.CheckMembers({"name", "name_base64", "version", "version_base64"});
            components.push_back({ReadText(value, "name"), ReadText(value, "version")});
        }
    }
    return components;
}

std::vector<std::string> ReadCapabilities(const JsonValue& root) {
    std::vector<std::string> capabilities;
    if (const auto list = root.Find(kCapabilities)) {
        for (const JsonValue& value : list->Elements(0, kMaxTextBytes / kCapabilityBytes)) {
            if (value.IsText()) {
                capabilities.push_back(value.Text());
            } else {
                value.CheckMembers({"base64"});
                capabilities.push_back(Decode(value.At("base64")));
            }
        }
    }
    return capabilities;
}

template <typename Integer>
Integer ReadNumber(const JsonValue& object, const char* name) {
    const auto member = object.Find(name);
    return member ? static_cast<Integer>(member->Unsigned(0, std::numeric_limits<Integer>::max()))
                  : Integer{0};
}

qor::types::Timestamp ReadTime(const JsonValue& object, const char* name) {
    const auto member = object.Find(name);
    return qor::types::Timestamp(member ? member->Signed(std::numeric_limits<std::int64_t>::min(),
                                                         std::numeric_limits<std::int64_t>::max())
                                        : 0);
}

bool ReadFlag(const JsonValue& object, const char* name) {
    const auto member = object.Find(name);
    return member && member->Boolean();
}

/// A member and what it takes in a request, apart from the rounding.
struct Share {
    std::string name;
    std::size_t bytes;
};

std::vector<Share> SharesOf(const AppInfo& info) {
    std::vector<Share> shares;
    for (const TextField& field : kTextFields) {
        shares.push_back({field.name, (info.*field.text).size()});
    }
    Share components{kComponents, kComponentBytes * info.components.size()};
    for (const zam_connector::AppComponent& component : info.components) {
        components.bytes += component.name.size() + component.version.size();
    }
    Share capabilities{kCapabilities, kCapabilityBytes * info.capabilities.size()};
    for (const std::string& name : info.capabilities) {
        capabilities.bytes += name.size();
    }
    shares.push_back(std::move(components));
    shares.push_back(std::move(capabilities));
    return shares;
}

/// Refuses what the library could not send; the largest member is the one to blame. The library's
/// own conversion counts, into room for all of it, so that what is refused here and what the
/// library refuses are the same.
void CheckFits(const JsonValue& root, const AppInfo& info) {
    const std::vector<Share> shares = SharesOf(info);
    std::size_t most = kTables * (kTableAlignment - 1);
    for (const Share& share : shares) {
        most += share.bytes;
    }
    zam_connector::common::HeapArena arena(static_cast<std::uint32_t>(most));
    zam_connector::common::CastToVd(info, arena.Get());
    const std::uint32_t bytes = arena.Get()->used;
    if (bytes <= kMaxTextBytes) {
        return;
    }
    const Share& largest = *std::max_element(
        shares.begin(), shares.end(),
        [](const Share& left, const Share& right) { return left.bytes < right.bytes; });
    FindText(root, largest.name)
        .value_or(root)
        .Fail(fmt::format("takes {} bytes of the {} that all texts take; at most {} can be sent "
                          "(each component counts {} more, each capability {}, and behind each "
                          "list of texts the sum is rounded up to a multiple of {})",
                          largest.bytes, bytes, kMaxTextBytes, kComponentBytes, kCapabilityBytes,
                          kTableAlignment));
}

}  // namespace

std::string WriteAppInfo(const AppInfo& info) {
    JsonWriter json;
    json.BeginObject();
    for (const TextField& field : kTextFields) {
        Put(json, field.name, info.*field.text);
    }
    PutComponents(json, info);
    PutCapabilities(json, info);
    json.Name(kInstallTime).Number(std::int64_t{info.installTime.Count()});
    json.Name(kLastUpdateTime).Number(std::int64_t{info.lastUpdateTime.Count()});
    json.Name(kLicenseExpiry).Number(std::int64_t{info.licenseExpiry.Count()});
    json.Name(kLocaleId).Number(std::uint64_t{info.localeId});
    json.Name(kProtocolVersion).Number(std::uint64_t{info.protocolVersion});
    json.Name(kMaxFileSize).Number(std::uint64_t{info.maxFileSizeBytes});
    return json.End().Take();
}

std::string WriteDynamicAppInfo(const DynamicAppInfo& info) {
    JsonWriter json;
    json.BeginObject();
    json.Name(kUptime).Number(std::uint64_t{info.uptime.count()});
    json.Name(kHealth).Text(kHealthNames.at(static_cast<std::size_t>(info.health)));
    json.Name(kRestartRequired).Flag(info.restartRequired);
    json.Name(kRebootRequired).Flag(info.rebootRequired);
    json.Name(kUpdateInProgress).Flag(info.updateInProgress);
    return json.End().Take();
}

AppInfo ReadAppInfo(const std::string& name, const std::string& text) {
    const JsonDocument document(name, text);
    const JsonValue root = document.Root();
    std::vector<std::string> names = {kComponents,      kCapabilities,  kInstallTime,
                                      kLastUpdateTime,  kLicenseExpiry, kLocaleId,
                                      kProtocolVersion, kMaxFileSize};
    for (const TextField& field : kTextFields) {
        names.emplace_back(field.name);
        names.push_back(names.back() + kBase64Suffix);
    }
    root.CheckMembers({names.begin(), names.end()});
    AppInfo info;
    for (const TextField& field : kTextFields) {
        info.*field.text = ReadText(root, field.name);
    }
    info.components = ReadComponents(root);
    info.capabilities = ReadCapabilities(root);
    info.installTime = ReadTime(root, kInstallTime);
    info.lastUpdateTime = ReadTime(root, kLastUpdateTime);
    info.licenseExpiry = ReadTime(root, kLicenseExpiry);
    info.localeId = ReadNumber<std::uint32_t>(root, kLocaleId);
    info.protocolVersion = ReadNumber<std::uint32_t>(root, kProtocolVersion);
    info.maxFileSizeBytes = ReadNumber<std::uint64_t>(root, kMaxFileSize);
    CheckFits(root, info);
    return info;
}

DynamicAppInfo ReadDynamicAppInfo(const std::string& name, const std::string& text) {
    const JsonDocument document(name, text);
    const JsonValue root = document.Root();
    root.CheckMembers({kUptime, kHealth, kRestartRequired, kRebootRequired, kUpdateInProgress});
    DynamicAppInfo info;
    info.uptime = std::chrono::duration<std::uint32_t>(ReadNumber<std::uint32_t>(root, kUptime));
    if (const auto health = root.Find(kHealth)) {
        const auto* const found = std::find(kHealthNames.begin(), kHealthNames.end(),
                                            health->IsText() ? health->Text() : "");
        if (found == kHealthNames.end()) {
            health->Refuse(fmt::format("one of {}", fmt::join(kHealthNames, ", ")));
        }
        info.health = static_cast<zam_connector::AppHealth>(found - kHealthNames.begin());
    }
    info.restartRequired = ReadFlag(root, kRestartRequired);
    info.rebootRequired = ReadFlag(root, kRebootRequired);
    info.updateInProgress = ReadFlag(root, kUpdateInProgress);
    return info;
}

}  // namespace zam_json
