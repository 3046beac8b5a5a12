#include "connection.h"

#include <fmt/format.h>

#include <chrono>
#include <stdexcept>

#include "codes.h"
#include "endpoint_probe.h"
#include "zam_connector/call_deadline.h"
#include "zam_connector/create_zam_connector.h"

namespace zamctl {
namespace {

/// How long looking at the services may take.
constexpr std::chrono::seconds kShortLook{1};
constexpr std::chrono::seconds kLongLook{10};

/// Says why no connector could be made, as far as looking at the services tells.
[[noreturn]] void ThrowFor(int code) {
    using zam_connector::TransportFailure;
    const TransportFailure failure = zam_connector::LastTransportStatus().failure;
    const bool wasSilent = failure == TransportFailure::TimedOut;
    // A service that has let the library wait would let the look at it wait as long.
    const zam_connector::CallDeadline within(wasSilent ? kShortLook : kLongLook);
    for (const std::string& service : ConnectorServices()) {
        try {
            for (const EndpointReport& endpoint : ProbeEndpoints(service)) {
                if (!endpoint.riid) {
                    throw MissingEndpoint(service, endpoint.name);
                }
            }
        } catch (const SilentService&) {
            if (failure == TransportFailure::Unavailable) {
                // The library found nobody there; there was no time left for a second look.
                throw UnreachableService(service, "nobody is there");
            }
            throw;
        }
    }
    throw std::runtime_error(DescribeCode(code));
}

}  // namespace

std::vector<std::string> Connection::ServiceNames() const {
    return ConnectorServices();
}

ConnectorInterfaces Connection::Open() {
    if (connector_ == nullptr) {
        Make();
    }
    return {*controller_,      *settingsHolder_,       *stateSubscriber_,   *commandSender_,
            *dataProvider_,    *dataChangeSubscriber_, *productDataHolder_, *fileDownloader_,
            *certsDownloader_, *localeInfo_,           *locationInfo_};
}

void Connection::Make() {
    std::shared_ptr<zam_connector::IZamConnector> connector;
    const int code = zam_connector::CreateZamConnector(connector, {.applicationName = "zamctl"});
    if (zam_connector::IsFailure(code)) {
        ThrowFor(code);
    }
    if (connector == nullptr) {
        throw NothingReturned(
            fmt::format("the library answered {} but gave no connector", DescribeCode(code)));
    }
    connector->GetZamController(controller_);
    connector->GetSettingsHolder(settingsHolder_);
    connector->GetStateChangeSubscriber(stateSubscriber_);
    connector->GetCommandSender(commandSender_);
    connector->GetDataProvider(dataProvider_);
    connector->GetDataChangeSubscriber(dataChangeSubscriber_);
    connector->GetProductDataHolder(productDataHolder_);
    connector->GetFileDownloader(fileDownloader_);
    connector->GetClientCertsDownloader(certsDownloader_);
    connector->GetZamLocaleInfo(localeInfo_);
    connector->GetZamLocationInfo(locationInfo_);
    // Last: what is asked for next is asked of a connector with all its interfaces.
    connector_ = std::move(connector);
}

std::vector<EndpointReport> Connection::Endpoints(const std::string& service) {
    return ProbeEndpoints(service);
}

FastChannelUse Connection::FastChannel() {
    if (!handle_) {
        handle_ = HandleOf(ConnectorServices().front());
    }
    return ProbeFastChannel(*handle_);
}

}  // namespace zamctl
