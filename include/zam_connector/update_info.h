#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "qor/types/timestamp.h"
#include "zam_connector/zam_id.h"

namespace zam_connector {

/// What is known of one available update from the start, whatever becomes of it on the device. A
/// value type: copies are independent, and a constant one may be read from several threads.
///
/// All fields are carried as they stand: the meaning of the numbers, and what times count, is
/// agreed between the product and its server. Texts are UTF-8 by convention, which is not checked.
/// Behind each field stand its key in a tree and the kind of the value there.
struct UpdateInfo {
    ZamId id{};                            ///< of the update: "id", blob
    qor::types::Timestamp releaseTime;     ///< of the update: "releasetime", timestamp
    std::int32_t localeId = 0;             ///< locale identifier: "locid", int32
    std::int32_t localeInfo = 0;           ///< locale information code: "updlocinfo", int32
    std::string name;                      ///< of the update: "updname", string
    std::string url;                       ///< where the update is found: "updurl", string
    std::int32_t importance = 0;           ///< of the update: "importance", int32
    std::string description;               ///< for people: "description", string
    bool isFullDistributive = false;       ///< complete, not a patch: "is_full_fistributive", bool
    bool eulaHasPrivacyPolicy = false;     ///< the licence agreement carries a privacy-policy part:
                                           ///< "updeulahaspp", bool
    std::int32_t status = 0;               ///< of the update: "updstatus", int32
    std::optional<ZamId> eulaId;           ///< of the licence agreement: "updeulaid", blob
    std::optional<bool> notUninstallable;  ///< cannot be uninstalled: "notuninstallable", bool

    // What the update applies to: strings.
    std::optional<std::string> targetProduct;          ///< "target_product"
    std::optional<std::string> targetInternalVersion;  ///< "target_internal_version"
    std::optional<std::string> targetDisplayName;      ///< "target_display_name"
    std::optional<std::string> targetDisplayVersion;   ///< "target_display_version"

    // What has to be there before the update is installed: strings.
    std::optional<std::string> requiredPluginVersion;  ///< "required_plugin_version"
    std::optional<std::string> requiredPluginUrl;      ///< "required_plugin_url"
    std::optional<std::string> requiredZamsrvVersion;  ///< "required_zamsrv_version"
};

/// Equal in every field; an absent field differs from an empty text.
inline bool operator==(const UpdateInfo& left, const UpdateInfo& right) {
    return left.id == right.id && left.releaseTime == right.releaseTime &&
           left.localeId == right.localeId && left.localeInfo == right.localeInfo &&
           left.name == right.name && left.url == right.url &&
           left.importance == right.importance && left.description == right.description &&
           left.isFullDistributive == right.isFullDistributive &&
           left.eulaHasPrivacyPolicy == right.eulaHasPrivacyPolicy && left.status == right.status &&
           left.eulaId == right.eulaId && left.notUninstallable == right.notUninstallable &&
           left.targetProduct == right.targetProduct &&
           left.targetInternalVersion == right.targetInternalVersion &&
           left.targetDisplayName == right.targetDisplayName &&
           left.targetDisplayVersion == right.targetDisplayVersion &&
           left.requiredPluginVersion == right.requiredPluginVersion &&
           left.requiredPluginUrl == right.requiredPluginUrl &&
           left.requiredZamsrvVersion == right.requiredZamsrvVersion;
}

inline bool operator!=(const UpdateInfo& left, const UpdateInfo& right) {
    return !(left == right);
}

}  // namespace zam_connector
