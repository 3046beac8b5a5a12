#pragma once

#include "data/history.h"
#include "link/connector_link.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Serves ConnCommandSender: events and synchronisations.
class ConnCommandSenderEndpoint final : public zam_platform::EndpointHandler {
public:
    /// Neither is owned; both must outlive this object.
    ConnCommandSenderEndpoint(ConnectorLink& link, History& history)
        : link_(link), history_(history) {}

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override;

private:
    void PostZamEvent(const zam_platform::Request& request, zam_platform::Responder responder);

    ConnectorLink& link_;
    History& history_;
};

}  // namespace zam_service
