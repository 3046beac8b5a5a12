#pragma once

#include <memory>

#include "connector_provider.h"
#include "vd/zor_transport.h"

namespace zamctl {

/// The connector over the service of this machine.
class Connection final : public ConnectorProvider {
public:
    Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() override;

    std::string ServiceName() const override;
    ConnectorInterfaces Open() override;
    std::vector<EndpointReport> Endpoints() override;

private:
    // The proxies refer to the transport and therefore stand behind it.
    std::unique_ptr<VdZorTransport> transport_;
    std::unique_ptr<zam_connector::IZamConnController> controller_;
    std::unique_ptr<zam_connector::IZamConnSettingsHolder> settingsHolder_;
    std::unique_ptr<zam_connector::IZamConnCommandSender> commandSender_;
};

}  // namespace zamctl
