#include "common/server_data_casts.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "common/arena.h"

namespace zam_connector::common {
namespace {

void CheckLength(const char* field, std::size_t length, std::size_t expected) {
    if (length != expected) {
        throw std::invalid_argument(
            fmt::format("{}: {} elements, the event types have {}", field, length, expected));
    }
}

ZamDeviceStatus CheckedStatus(ZamDeviceStatus status) {
    if (status > ZamDeviceStatus::Quarantined) {
        throw std::out_of_range(
            fmt::format("deviceStatus: {} is unknown", static_cast<unsigned>(status)));
    }
    return status;
}

}  // namespace

qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash CastToVd(
    const std::pair<unsigned long, ZamSubscriptions>& subscriptions, vd_arena* arena) {
    std::vector<std::string_view> types;
    std::vector<std::uint32_t> severities;
    std::vector<std::uint32_t> delays;
    for (const auto& [type, subscription] : subscriptions.second.events) {
        types.emplace_back(type);
        severities.push_back(subscription.minSeverity);
        delays.push_back(subscription.maxDelay.count());
    }
    ArenaWriter writer(arena);
    qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash result{};
    result.hash = subscriptions.first;
    result.eventTypes = writer.PutTexts(types, "eventTypes");
    result.minSeverities = writer.PutSequence(severities, "minSeverities");
    result.maxDelaysS = writer.PutSequence(delays, "maxDelays");
    return result;
}

std::pair<unsigned long, ZamSubscriptions> CastFromVd(
    const qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash& subscriptions,
    const vd_arena* arena) {
    const ArenaReader reader(arena);
    std::vector<std::string> types = reader.Texts(subscriptions.eventTypes, "eventTypes");
    const auto severities =
        reader.Sequence<std::uint32_t>(subscriptions.minSeverities, "minSeverities");
    const auto delays = reader.Sequence<std::uint32_t>(subscriptions.maxDelaysS, "maxDelays");
    CheckLength("minSeverities", severities.size(), types.size());
    CheckLength("maxDelays", delays.size(), types.size());
    std::pair<unsigned long, ZamSubscriptions> result;
    result.first = subscriptions.hash;
    for (std::size_t index = 0; index < types.size(); ++index) {
        const ZamEventSubscription subscription{
            .minSeverity = severities[index],
            .maxDelay = std::chrono::duration<std::uint32_t>(delays[index])};
        const auto [entry, isNew] =
            result.second.events.emplace(std::move(types[index]), subscription);
        if (!isNew) {
            throw std::invalid_argument(
                fmt::format("eventTypes: \"{}\" comes twice", entry->first));
        }
    }
    return result;
}

qx_zam_connector_ZamTypes_ZamServerData CastToVd(const ZamServerData& serverData) {
    const auto flags = static_cast<std::uint8_t>(
        (serverData.offersFiles ? kQxServerOffersFiles : 0U) |
        (serverData.wantsDiagnostics ? kQxServerWantsDiagnostics : 0U) |
        (serverData.requiresClientCert ? kQxServerRequiresClientCert : 0U));
    return {
        .versionMajor = serverData.versionMajor,
        .versionMinor = serverData.versionMinor,
        .clockOffsetS = serverData.clockOffset.count(),
        .deviceStatus = static_cast<std::uint8_t>(CheckedStatus(serverData.deviceStatus)),
        .flags = flags,
        .reserved = 0,
    };
}

ZamServerData CastFromVd(const qx_zam_connector_ZamTypes_ZamServerData& serverData) {
    return {
        .versionMajor = serverData.versionMajor,
        .versionMinor = serverData.versionMinor,
        .clockOffset = std::chrono::duration<std::int32_t>(serverData.clockOffsetS),
        .deviceStatus = CheckedStatus(static_cast<ZamDeviceStatus>(serverData.deviceStatus)),
        .offersFiles = (serverData.flags & kQxServerOffersFiles) != 0,
        .wantsDiagnostics = (serverData.flags & kQxServerWantsDiagnostics) != 0,
        .requiresClientCert = (serverData.flags & kQxServerRequiresClientCert) != 0,
    };
}

qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer CastToVd(
    const std::vector<ZamId>& identifiers, vd_arena* arena) {
    return {ArenaWriter(arena).PutSequence(identifiers, "identifiers")};
}

std::vector<ZamId> CastFromVd(
    const qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer& identifiers,
    const vd_arena* arena) {
    return ArenaReader(arena).Sequence<ZamId>(identifiers.identifiers, "identifiers");
}

}  // namespace zam_connector::common
