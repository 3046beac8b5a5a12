#include "zam_connector/update_status_info.h"
#include "zam_converter_fields.h"

namespace zam_connector::zam_converter {
namespace {

constexpr char kSourceFile[] = "zam_converter_update_status_info";

/// The keys in the order in which they are written and read.
constexpr std::tuple kFields{
    Field{"id", &UpdateStatusInfo::id,
          "ConvertUpdateStatusInfo: Canon't convert SeamlessDynamicUpdateId to BLOB"},
    Field{"installtime", &UpdateStatusInfo::installTime},
    Field{"updstatus", &UpdateStatusInfo::status},
    Field{"installerrorcode", &UpdateStatusInfo::installErrorCode},
    Field{"installerrortext", &UpdateStatusInfo::installErrorText},
    Field{"releasetime", &UpdateStatusInfo::releaseTime},
};

constexpr std::tuple kIdentityFields{
    Field{"id", &UpdateStatusInfo::id,
          "ConvertUpdateStatusIdentityInfo: Could not convert SeamlessDynamicUpdateId to BLOB"},
    Field{"releasetime", &UpdateStatusInfo::releaseTime},
};

}  // namespace

std::optional<zuv::TValue> ConvertUpdateStatusInfo(const UpdateStatusInfo& info) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ConvertUpdateStatusInfo");
    return Guarded(site, "ConvertUpdateStatusInfo failed with exception [{} : {}]",
                   [&] { return WriteFields(site, info, kFields); });
}

std::optional<UpdateStatusInfo> ParseUpdateStatusInfo(const zuv::TValue& node) noexcept {
    return Guarded(common::Here(kSourceFile, "ParseUpdateStatusInfo"),
                   "ParseUpdateStatusInfo failed with exception [{} : {}]",
                   [&] { return std::optional<UpdateStatusInfo>(ReadFields(node, kFields)); });
}

std::optional<zuv::TValue> ConvertUpdateStatusIdentityInfo(const UpdateStatusInfo& info) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ConvertUpdateStatusIdentityInfo");
    return Guarded(site, "ConvertUpdateStatusIdentityInfo failed with exception [{} : {}]",
                   [&] { return WriteFields(site, info, kIdentityFields); });
}

}  // namespace zam_connector::zam_converter
