#include "endpoint_probe.h"

#include <cstdint>

#include "vd/service_locator.h"
#include "zam_connector/call_deadline.h"

namespace zamctl {
namespace {

constexpr std::uint32_t kNoHandle = 0xFFFFFFFF;

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

std::vector<EndpointReport> ProbeEndpoints(const std::string& service) {
    const std::uint32_t handle = ServiceLocatorConnect(service.c_str());
    if (handle == kNoHandle) {
        ThrowIfTimedOut(service);
        throw UnreachableService(service, "the service locator has no handle for it");
    }
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
