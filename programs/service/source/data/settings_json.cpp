#include "data/settings_json.h"

#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>

namespace zam_service {

using zam_json::JsonValue;

namespace {

using zam_connector::ZamConnectorSettings;
using zam_connector::ZamSeconds;

constexpr char kSyncPeriod[] = "sync_period_s";
constexpr char kHeartbeatPeriod[] = "heartbeat_period_s";
constexpr char kReconnectDelayMin[] = "reconnect_delay_min_s";
constexpr char kReconnectDelayMax[] = "reconnect_delay_max_s";
constexpr char kUploadLimit[] = "upload_limit_bytes_per_second";
constexpr char kDownloadLimit[] = "download_limit_bytes_per_second";
constexpr char kMaxFileSize[] = "max_file_size_bytes";
constexpr char kEventQueueLimit[] = "event_queue_limit";
constexpr char kCompressTraffic[] = "compress_traffic";
constexpr char kAllowMeteredNetwork[] = "allow_metered_network";
constexpr char kSendDiagnostics[] = "send_diagnostics";

void Read(const JsonValue& root, const char* name, std::uint32_t& field) {
    if (const auto member = root.Find(name)) {
        field = static_cast<std::uint32_t>(
            member->Unsigned(0, std::numeric_limits<std::uint32_t>::max()));
    }
}

void Read(const JsonValue& root, const char* name, std::uint64_t& field) {
    if (const auto member = root.Find(name)) {
        field = member->Unsigned(0, std::numeric_limits<std::uint64_t>::max());
    }
}

void Read(const JsonValue& root, const char* name, ZamSeconds& field) {
    std::uint32_t seconds = field.count();
    Read(root, name, seconds);
    field = ZamSeconds(seconds);
}

void Read(const JsonValue& root, const char* name, bool& field) {
    if (const auto member = root.Find(name)) {
        field = member->Boolean();
    }
}

}  // namespace

bool AreConsistent(const ZamConnectorSettings& settings) noexcept {
    return settings.reconnectDelayMin <= settings.reconnectDelayMax;
}

ZamConnectorSettings ReadSettings(const JsonValue& root) {
    root.CheckMembers({kSyncPeriod, kHeartbeatPeriod, kReconnectDelayMin, kReconnectDelayMax,
                       kUploadLimit, kDownloadLimit, kMaxFileSize, kEventQueueLimit,
                       kCompressTraffic, kAllowMeteredNetwork, kSendDiagnostics});
    ZamConnectorSettings settings;
    Read(root, kSyncPeriod, settings.syncPeriod);
    Read(root, kHeartbeatPeriod, settings.heartbeatPeriod);
    Read(root, kReconnectDelayMin, settings.reconnectDelayMin);
    Read(root, kReconnectDelayMax, settings.reconnectDelayMax);
    Read(root, kUploadLimit, settings.uploadLimitBytesPerSecond);
    Read(root, kDownloadLimit, settings.downloadLimitBytesPerSecond);
    Read(root, kMaxFileSize, settings.maxFileSizeBytes);
    Read(root, kEventQueueLimit, settings.eventQueueLimit);
    Read(root, kCompressTraffic, settings.compressTraffic);
    Read(root, kAllowMeteredNetwork, settings.allowMeteredNetwork);
    Read(root, kSendDiagnostics, settings.sendDiagnostics);
    if (!AreConsistent(settings)) {
        // One of the two is in the file: the defaults agree with each other.
        const auto least = root.Find(kReconnectDelayMin);
        (least ? *least : root.At(kReconnectDelayMax))
            .Fail(fmt::format("{} is {}, allowed is at most {}, which is {}", kReconnectDelayMin,
                              settings.reconnectDelayMin.count(), kReconnectDelayMax,
                              settings.reconnectDelayMax.count()));
    }
    return settings;
}

std::string WriteSettings(const ZamConnectorSettings& settings) {
    const nlohmann::ordered_json tree = {
        {kSyncPeriod, settings.syncPeriod.count()},
        {kHeartbeatPeriod, settings.heartbeatPeriod.count()},
        {kReconnectDelayMin, settings.reconnectDelayMin.count()},
        {kReconnectDelayMax, settings.reconnectDelayMax.count()},
        {kUploadLimit, settings.uploadLimitBytesPerSecond},
        {kDownloadLimit, settings.downloadLimitBytesPerSecond},
        {kMaxFileSize, settings.maxFileSizeBytes},
        {kEventQueueLimit, settings.eventQueueLimit},
        {kCompressTraffic, settings.compressTraffic},
        {kAllowMeteredNetwork, settings.allowMeteredNetwork},
        {kSendDiagnostics, settings.sendDiagnostics},
    };
    return tree.dump(4) + "\n";
}

}  // namespace zam_service
