#pragma once

#include <chrono>
#include <cstdint>

namespace zam_connector {

/// How the management server looks upon this device. The numbers are those of the wire.
enum class ZamDeviceStatus : std::uint8_t {
    Unmanaged = 0,    ///< the server does not know the device yet
    Managed = 1,      ///< the device is under management
    Quarantined = 2,  ///< the server has set the device apart and takes no uploads from it
};

/// What the management server tells about itself. A value type.
struct ZamServerData {
    std::uint16_t versionMajor = 0;
    std::uint16_t versionMinor = 0;
    /// What to add to the device's clock to get the server's; -2147483648 to 2147483647 s.
    std::chrono::duration<std::int32_t> clockOffset{0};
    ZamDeviceStatus deviceStatus = ZamDeviceStatus::Unmanaged;
    bool offersFiles = false;         ///< the server has files for download
    bool wantsDiagnostics = false;    ///< the server asks for diagnostic data
    bool requiresClientCert = false;  ///< only connections with a client certificate are served
};

inline bool operator==(const ZamServerData& left, const ZamServerData& right) {
    return left.versionMajor == right.versionMajor && left.versionMinor == right.versionMinor &&
           left.clockOffset == right.clockOffset && left.deviceStatus == right.deviceStatus &&
           left.offersFiles == right.offersFiles &&
           left.wantsDiagnostics == right.wantsDiagnostics &&
           left.requiresClientCert == right.requiresClientCert;
}
inline bool operator!=(const ZamServerData& left, const ZamServerData& right) {
    return !(left == right);
}

}  // namespace zam_connector
