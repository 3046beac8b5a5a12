#include "endpoint_probe.h"

#include <chrono>
#include <cstdint>

#include "vd/service_locator.h"
#include "vd/transport_features.h"
#include "vd/zor_transport.h"
#include "zam_connector/call_deadline.h"

namespace zamctl {
namespace {

struct ServiceEndpoints {
    const char* service;
    std::vector<const char*> endpoints;
};

/// In the order in which the library looks them up.
/// So the first that is missing is the one at which the library stopped.
const std::vector<ServiceEndpoints>& Needed() {
    static const std::vector<ServiceEndpoints> kNeeded = {
        {"zam_connector_id",
         {
             "qx.zam_connector.ZamConnectorComponent.connController",
             "qx.zam_connector.ZamConnectorComponent.connSettingsHolder",
             "qx.zam_connector.ZamConnectorComponent.connStateNotifier",
             "qx.zam_connector.ZamConnectorComponent.connCommandSender",
             "qx.zam_connector.ZamConnectorComponent.zamDataProvider",
             "qx.zam_connector.ZamConnectorComponent.zamDataNotifier",
             "qx.zam_connector.ZamConnectorComponent.productDataHolder",
             "qx.zam_connector.ZamConnectorComponent.clientCertsDownloader",
         }},
        {"zam_file_downloader_id", {"qx.zam_connector.ZamFileDownloaderComponent.fileDownloader"}},
    };
    return kNeeded;
}

/// Whoever answers one question in no time answers none.
void ThrowIfTimedOut(const std::string& service) {
    const zam_connector::TransportStatus status = zam_connector::LastTransportStatus();
    if (status.failure == zam_connector::TransportFailure::TimedOut) {
        throw SilentService(service, status.text);
    }
}

}  // namespace

std::vector<std::string> ConnectorServices() {
    std::vector<std::string> services;
    for (const ServiceEndpoints& needed : Needed()) {
        services.emplace_back(needed.service);
    }
    return services;
}

std::uint32_t HandleOf(const std::string& service) {
    const std::uint32_t handle = ServiceLocatorConnect(service.c_str());
    if (handle == VD_ZOR_INVALID_HANDLE) {
        ThrowIfTimedOut(service);
        throw UnreachableService(service, "the service locator has no handle for it");
    }
    return handle;
}

FastChannelUse ProbeFastChannel(std::uint32_t handle) {
    VdZorTransport transport;
    VdZorTransport_Init(&transport, handle, 0, 0);
    const std::uint32_t features = VdZorTransport_Features(&transport);
    VdTransportStatistics statistics{};
    statistics.size = sizeof(statistics);
    VdZorTransport_Statistics(&transport, &statistics);
    FastChannelUse use;
    use.isBuilt = (features & VD_TRANSPORT_FAST_CHANNEL) != 0;
    use.isOn = (features & VD_TRANSPORT_FAST_CHANNEL_ON) != 0;
    if ((features & VD_TRANSPORT_FAST_CHANNEL_TOLD) != 0) {
        use.isOffered = (features & VD_TRANSPORT_FAST_CHANNEL_OFFERED) != 0;
    }
    use.isTaken = (features & VD_TRANSPORT_FAST_CHANNEL_TAKEN) != 0;
    use.calls = statistics.calls;
    use.memoryCalls = statistics.memoryCalls;
    use.vainPolls = statistics.vainPolls;
    use.vainTime = std::chrono::nanoseconds(statistics.vainPollNs);
    return use;
}

std::vector<EndpointReport> ProbeEndpoints(const std::string& service) {
    const std::uint32_t handle = HandleOf(service);
    std::vector<EndpointReport> reports;
    for (const ServiceEndpoints& needed : Needed()) {
        if (needed.service != service) {
            continue;
        }
        for (const char* const endpoint : needed.endpoints) {
            const std::uint16_t riid = ServiceLocatorGetRiid(handle, endpoint);
            if (riid == VD_UNKNOWN_RIID) {
                ThrowIfTimedOut(service);
            }
            reports.push_back({endpoint, riid == VD_UNKNOWN_RIID
                                             ? std::nullopt
                                             : std::optional<std::uint16_t>(riid)});
        }
    }
    return reports;
}

}  // namespace zamctl
