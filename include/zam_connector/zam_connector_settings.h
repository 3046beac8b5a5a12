#pragma once

#include <chrono>
#include <cstdint>
#include <type_traits>

namespace zam_connector {

/// Whole seconds in the range that settings carry: 0 to 4294967295.
using ZamSeconds = std::chrono::duration<std::uint32_t>;

/// Settings of the connector. Trivially copyable; copied member by member in both directions. The
/// values of a default-constructed record are those of a new connector service.
struct ZamConnectorSettings {
    ZamSeconds syncPeriod{900};         ///< between two synchronisations; 0: only on demand
    ZamSeconds heartbeatPeriod{60};     ///< between two heartbeats on the link; 0: none
    ZamSeconds reconnectDelayMin{5};    ///< before the first attempt to reconnect
    ZamSeconds reconnectDelayMax{300};  ///< bound of the growing delay between attempts
    std::uint64_t uploadLimitBytesPerSecond = 0;    ///< 0: unlimited
    std::uint64_t downloadLimitBytesPerSecond = 0;  ///< 0: unlimited
    std::uint64_t maxFileSizeBytes = 0;    ///< largest file that is downloaded; 0: unlimited
    std::uint32_t eventQueueLimit = 1000;  ///< events kept while the link is down; 0: none
    bool compressTraffic = true;           ///< compress what is sent to the server
    bool allowMeteredNetwork = false;      ///< connect over networks that charge by volume
    bool sendDiagnostics = false;          ///< send diagnostic data of the connector itself
};

static_assert(std::is_trivially_copyable<ZamConnectorSettings>::value,
              "settings are copied as they stand");

inline bool operator==(const ZamConnectorSettings& left, const ZamConnectorSettings& right) {
    return left.syncPeriod == right.syncPeriod && left.heartbeatPeriod == right.heartbeatPeriod &&
           left.reconnectDelayMin == right.reconnectDelayMin &&
           left.reconnectDelayMax == right.reconnectDelayMax &&
           left.uploadLimitBytesPerSecond == right.uploadLimitBytesPerSecond &&
           left.downloadLimitBytesPerSecond == right.downloadLimitBytesPerSecond &&
           left.maxFileSizeBytes == right.maxFileSizeBytes &&
           left.eventQueueLimit == right.eventQueueLimit &&
           left.compressTraffic == right.compressTraffic &&
           left.allowMeteredNetwork == right.allowMeteredNetwork &&
           left.sendDiagnostics == right.sendDiagnostics;
}

inline bool operator!=(const ZamConnectorSettings& left, const ZamConnectorSettings& right) {
    return !(left == right);
}

}  // namespace zam_connector
