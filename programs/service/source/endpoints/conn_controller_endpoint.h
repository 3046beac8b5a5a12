#pragma once

#include "link/connector_link.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Serves ConnController: starts and stops the link, tells its state.
class ConnControllerEndpoint final : public zam_platform::EndpointHandler {
public:
    /// `link` is not owned and must outlive this object.
    explicit ConnControllerEndpoint(ConnectorLink& link) : link_(link) {}

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override;

private:
    int Start(const zam_platform::Request& request);

    ConnectorLink& link_;
};

}  // namespace zam_service
