#pragma once

#include <chrono>
#include <cstdint>

namespace zam_connector {

/// How the product is doing. The numbers are those of the wire.
enum class AppHealth : std::uint8_t {
    Unknown = 0,
    Good = 1,
    Degraded = 2,  ///< it works, with something to be looked at
    Failed = 3,    ///< it does not do its work
};

/// What changes about the product while it runs. A value type.
struct DynamicAppInfo {
    /// Since the product was started; 0 to 4294967295 s.
    std::chrono::duration<std::uint32_t> uptime{0};
    AppHealth health = AppHealth::Unknown;
    bool restartRequired = false;   ///< of the product
    bool rebootRequired = false;    ///< of the device
    bool updateInProgress = false;  ///< an update is being installed
};

inline bool operator==(const DynamicAppInfo& left, const DynamicAppInfo& right) {
    return left.uptime == right.uptime && left.health == right.health &&
           left.restartRequired == right.restartRequired &&
           left.rebootRequired == right.rebootRequired &&
           left.updateInProgress == right.updateInProgress;
}
inline bool operator!=(const DynamicAppInfo& left, const DynamicAppInfo& right) {
    return !(left == right);
}

}  // namespace zam_connector
