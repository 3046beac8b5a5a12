#include "common/connection_casts.h"

#include <fmt/format.h>

#include <chrono>
#include <limits>
#include <stdexcept>

#include "common/arena.h"

namespace zam_connector::common {
namespace {

std::uint32_t MillisecondsToVd(std::chrono::milliseconds duration, const char* field) {
    constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
    if (duration.count() < 0 || duration.count() > kMost) {
        throw std::out_of_range(
            fmt::format("{}: {} ms is outside 0 to {} ms", field, duration.count(), kMost));
    }
    return static_cast<std::uint32_t>(duration.count());
}

std::uint16_t PortFromVd(std::uint32_t port) {
    constexpr std::uint32_t kMost = std::numeric_limits<std::uint16_t>::max();
    if (port > kMost) {
        throw std::out_of_range(fmt::format("serverPort: {} exceeds {}", port, kMost));
    }
    return static_cast<std::uint16_t>(port);
}

}  // namespace

qx_zam_connector_ZamTypes_ZamConnectionParameters CastToVd(
    const ZamConnectionParameters& parameters, vd_arena* arena) {
    ArenaWriter writer(arena);
    return {
        .serverAddress = writer.PutText(parameters.serverAddress, "serverAddress"),
        .productName = writer.PutText(parameters.productName, "productName"),
        .deviceName = writer.PutText(parameters.deviceName, "deviceName"),
        .proxyUrl = writer.PutText(parameters.proxyUrl, "proxyUrl"),
        .serverPort = parameters.serverPort,
        .connectTimeoutMs = MillisecondsToVd(parameters.connectTimeout, "connectTimeout"),
        .requestTimeoutMs = MillisecondsToVd(parameters.requestTimeout, "requestTimeout"),
        .keepAlivePeriodMs = MillisecondsToVd(parameters.keepAlivePeriod, "keepAlivePeriod"),
    };
}

ZamConnectionParameters CastFromVd(
    const qx_zam_connector_ZamTypes_ZamConnectionParameters& parameters, const vd_arena* arena) {
    const ArenaReader reader(arena);
    ZamConnectionParameters result;
    result.serverAddress = reader.Text(parameters.serverAddress, "serverAddress");
    result.serverPort = PortFromVd(parameters.serverPort);
    result.productName = reader.Text(parameters.productName, "productName");
    result.deviceName = reader.Text(parameters.deviceName, "deviceName");
    result.proxyUrl = reader.Text(parameters.proxyUrl, "proxyUrl");
    result.connectTimeout = std::chrono::milliseconds(parameters.connectTimeoutMs);
    result.requestTimeout = std::chrono::milliseconds(parameters.requestTimeoutMs);
    result.keepAlivePeriod = std::chrono::milliseconds(parameters.keepAlivePeriodMs);
    return result;
}

qx_zam_connector_ZamTypes_ZamConnectorSettings CastToVd(const ZamConnectorSettings& settings) {
    const std::uint32_t flags =
        (settings.compressTraffic ? kQxSettingsCompressTraffic : 0U) |
        (settings.allowMeteredNetwork ? kQxSettingsAllowMeteredNetwork : 0U) |
        (settings.sendDiagnostics ? kQxSettingsSendDiagnostics : 0U);
    return {
        .syncPeriodS = settings.syncPeriod.count(),
        .heartbeatPeriodS = settings.heartbeatPeriod.count(),
        .reconnectDelayMinS = settings.reconnectDelayMin.count(),
        .reconnectDelayMaxS = settings.reconnectDelayMax.count(),
        .uploadLimitBytesPerSecond = settings.uploadLimitBytesPerSecond,
        .downloadLimitBytesPerSecond = settings.downloadLimitBytesPerSecond,
        .maxFileSizeBytes = settings.maxFileSizeBytes,
        .eventQueueLimit = settings.eventQueueLimit,
        .flags = flags,
    };
}

ZamConnectorSettings CastFromVd(const qx_zam_connector_ZamTypes_ZamConnectorSettings& settings) {
    ZamConnectorSettings result;
    result.syncPeriod = ZamSeconds(settings.syncPeriodS);
    result.heartbeatPeriod = ZamSeconds(settings.heartbeatPeriodS);
    result.reconnectDelayMin = ZamSeconds(settings.reconnectDelayMinS);
    result.reconnectDelayMax = ZamSeconds(settings.reconnectDelayMaxS);
    result.uploadLimitBytesPerSecond = settings.uploadLimitBytesPerSecond;
    result.downloadLimitBytesPerSecond = settings.downloadLimitBytesPerSecond;
    result.maxFileSizeBytes = settings.maxFileSizeBytes;
    result.eventQueueLimit = settings.eventQueueLimit;
    result.compressTraffic = (settings.flags & kQxSettingsCompressTraffic) != 0;
    result.allowMeteredNetwork = (settings.flags & kQxSettingsAllowMeteredNetwork) != 0;
    result.sendDiagnostics = (settings.flags & kQxSettingsSendDiagnostics) != 0;
    return result;
}

std::int32_t CastToVd(ZamConnectorState state) {
    return static_cast<std::int32_t>(state);
}

std::optional<ZamConnectorState> CastFromVd(int state) {
    const auto known = static_cast<ZamConnectorState>(state);
    switch (known) {
        case ZamConnectorState::Stopped:
        case ZamConnectorState::Connecting:
        case ZamConnectorState::Connected:
        case ZamConnectorState::WaitingForReconnect:
        case ZamConnectorState::Stopping:
        case ZamConnectorState::Refused:
            return known;
    }
    return std::nullopt;
}

vd_bytes CastToVd(const std::string& text, vd_arena* arena) {
    return ArenaWriter(arena).PutText(text, "text");
}

std::string CastFromVd(const vd_bytes& text, const vd_arena* arena) {
    return std::string(ArenaReader(arena).Text(text, "text"));
}

}  // namespace zam_connector::common
