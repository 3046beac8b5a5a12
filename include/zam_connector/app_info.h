#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qor/types/timestamp.h"

namespace zam_connector {

/// A part of the product with a version of its own.
struct AppComponent {
    std::string name;
    std::string version;
};

inline bool operator==(const AppComponent& left, const AppComponent& right) {
    return left.name == right.name && left.version == right.version;
}
inline bool operator!=(const AppComponent& left, const AppComponent& right) {
    return !(left == right);
}

/// What the product tells about itself that stays as it is while it runs. A value type.
///
/// Texts are UTF-8. All of it goes in one message of at most 21216 bytes; more makes
/// `IProductDataHolder::SetAppInfo` fail with 0x8000004B, and nothing is sent. Counted are, in this
/// order, the bytes of the sixteen texts, then of the components' names, of their versions, and of
/// the capabilities. Behind each of these three lists that is not empty the count is rounded up to
/// a multiple of 4, and 8 bytes for each of its elements are added. So each component takes 16
/// bytes beside its texts, each capability 8, and the rounding at most 9 in all.
struct AppInfo {
    std::string productId;       ///< what the server knows the product by
    std::string productName;     ///< for people
    std::string productVersion;  ///< as in 3.4.1
    std::string buildNumber;
    std::string vendorName;
    std::string installationId;  ///< differs between two installations on one device
    std::string installPath;
    std::string licenseId;  ///< empty without a licence
    std::string updateChannel;
    std::string deviceModel;
    std::string deviceSerial;
    std::string osName;
    std::string osVersion;
    std::string architecture;  ///< as in x86_64
    std::string hostName;
    std::string supportUrl;
    std::vector<AppComponent> components;   ///< in the product's order
    std::vector<std::string> capabilities;  ///< names that product and server agree on
    qor::types::Timestamp installTime;
    qor::types::Timestamp lastUpdateTime;  ///< count 0: never updated
    qor::types::Timestamp licenseExpiry;   ///< count 0: does not expire
    std::uint32_t localeId = 0;            ///< of the product's user interface; 0: unknown
    std::uint32_t protocolVersion = 0;     ///< of the agreement between product and server
    std::uint64_t maxFileSizeBytes = 0;    ///< largest file that the product takes; 0: any
};

inline bool operator==(const AppInfo& left, const AppInfo& right) {
    return left.productId == right.productId && left.productName == right.productName &&
           left.productVersion == right.productVersion && left.buildNumber == right.buildNumber &&
           left.vendorName == right.vendorName && left.installationId == right.installationId &&
           left.installPath == right.installPath && left.licenseId == right.licenseId &&
           left.updateChannel == right.updateChannel && left.deviceModel == right.deviceModel &&
           left.deviceSerial == right.deviceSerial && left.osName == right.osName &&
           left.osVersion == right.osVersion && left.architecture == right.architecture &&
           left.hostName == right.hostName && left.supportUrl == right.supportUrl &&
           left.components == right.components && left.capabilities == right.capabilities &&
           left.installTime == right.installTime && left.lastUpdateTime == right.lastUpdateTime &&
           left.licenseExpiry == right.licenseExpiry && left.localeId == right.localeId &&
           left.protocolVersion == right.protocolVersion &&
           left.maxFileSizeBytes == right.maxFileSizeBytes;
}
inline bool operator!=(const AppInfo& left, const AppInfo& right) {
    return !(left == right);
}

}  // namespace zam_connector
