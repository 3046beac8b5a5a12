#include "zam_connector/update_info.h"

#include "zam_converter_fields.h"

namespace zam_connector::zam_converter {
namespace {

constexpr char kSourceFile[] = "zam_converter_update_info";

/// The keys, spelled as the service spells them, in the order in which they are written and read.
constexpr std::tuple kFields{
    Field{"id", &UpdateInfo::id,
          "ConvertUpdateInfo: Could not convert SeamlessStaticUpdateId to BLOB"},
    Field{"releasetime", &UpdateInfo::releaseTime},
    Field{"locid", &UpdateInfo::localeId},
    Field{"updlocinfo", &UpdateInfo::localeInfo},
    Field{"updname", &UpdateInfo::name},
    Field{"updurl", &UpdateInfo::url},
    Field{"importance", &UpdateInfo::importance},
    Field{"description", &UpdateInfo::description},
    Field{"is_full_fistributive", &UpdateInfo::isFullDistributive},
    Field{"updeulahaspp", &UpdateInfo::eulaHasPrivacyPolicy},
    Field{"updstatus", &UpdateInfo::status},
    Field{"updeulaid", &UpdateInfo::eulaId, "ConvertUpdateInfo: Could not convert EulaId to BLOB"},
    Field{"notuninstallable", &UpdateInfo::notUninstallable},
    Field{"target_product", &UpdateInfo::targetProduct},
    Field{"target_internal_version", &UpdateInfo::targetInternalVersion},
    Field{"target_display_name", &UpdateInfo::targetDisplayName},
    Field{"target_display_version", &UpdateInfo::targetDisplayVersion},
    Field{"required_plugin_version", &UpdateInfo::requiredPluginVersion},
    Field{"required_plugin_url", &UpdateInfo::requiredPluginUrl},
    Field{"required_zamsrv_version", &UpdateInfo::requiredZamsrvVersion},
};

constexpr std::tuple kIdentityFields{
    Field{"id", &UpdateInfo::id, "ConvertUpdateIdentityInfo: Could not convert ZamId to BLOB"},
    Field{"releasetime", &UpdateInfo::releaseTime},
};

}  // namespace

std::optional<zuv::TValue> ConvertUpdateInfo(const UpdateInfo& info) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ConvertUpdateInfo");
    return Guarded(site, "ConvertUpdateInfo failed with exception [{} : {}]",
                   [&] { return WriteFields(site, info, kFields); });
}

std::optional<UpdateInfo> ParseUpdateInfo(const zuv::TValue& node) noexcept {
    return Guarded(common::Here(kSourceFile, "ParseUpdateInfo"),
                   "ParseUpdateInfo failed with exception [{} : {}]",
                   [&] { return std::optional<UpdateInfo>(ReadFields(node, kFields)); });
}

std::optional<zuv::TValue> ConvertUpdateIdentityInfo(const UpdateInfo& info) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ConvertUpdateIdentityInfo");
    return Guarded(site, "ConvertUpdateIdentityInfo failed with exception [{} : {}]",
                   [&] { return WriteFields(site, info, kIdentityFields); });
}

}  // namespace zam_connector::zam_converter
