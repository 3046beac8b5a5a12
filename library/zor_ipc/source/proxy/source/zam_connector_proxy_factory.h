#pragma once

#include <memory>
#include <string>

#include "i_zam_connector_proxy_factory.h"

namespace zam_connector::proxy {

/// Connects to the services, looks up the nine endpoints and builds everything around them. Without
/// state.
class ZamConnectorProxyFactory final : public IZamConnectorProxyFactory {
public:
    /// Throws `qel::CheckFailedException` when a service or an endpoint is not there, and
    /// `qel::InvalidArgumentException` with code 0 when a transport is no good; what was built is
    /// destroyed then, the last first and the transports at the end. Nothing is started.
    std::unique_ptr<IZamConnector> CreateZamConnectorProxy(
        const std::string& connectorService, const std::string& fileDownloaderService) override;
};

}  // namespace zam_connector::proxy
