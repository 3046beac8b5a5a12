#pragma once

#include <memory>
#include <string>

#include "zam_connector/i_zam_connector.h"

namespace zam_connector::proxy {

/// Makes connectors. Thread-safe.
class IZamConnectorProxyFactory {
public:
    virtual ~IZamConnectorProxyFactory() = default;

    /// A connector over the two services of these names. Throws when it cannot be made.
    virtual std::unique_ptr<IZamConnector> CreateZamConnectorProxy(
        const std::string& connectorService, const std::string& fileDownloaderService) = 0;
};

}  // namespace zam_connector::proxy
