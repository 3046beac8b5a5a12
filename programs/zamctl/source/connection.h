#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "connector_provider.h"
#include "zam_connector/i_zam_connector.h"

namespace zamctl {

/// The connector over the services of this machine. What it gives lives as long as the object. One
/// thread at a time.
class Connection final : public ConnectorProvider {
public:
    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    std::vector<std::string> ServiceNames() const override;
    ConnectorInterfaces Open() override;
    std::vector<EndpointReport> Endpoints(const std::string& service) override;
    FastChannelUse FastChannel() override;

private:
    void Make();

    std::optional<std::uint32_t> handle_;  ///< of the connector service

    // Declared before the interfaces, which must not be used without it.
    std::shared_ptr<zam_connector::IZamConnector> connector_;
    std::shared_ptr<zam_connector::IZamConnController> controller_;
    std::shared_ptr<zam_connector::IZamConnSettingsHolder> settingsHolder_;
    std::shared_ptr<zam_connector::IZamConnStateSubscriber> stateSubscriber_;
    std::shared_ptr<zam_connector::IZamConnCommandSender> commandSender_;
    std::shared_ptr<zam_connector::IZamDataProvider> dataProvider_;
    std::shared_ptr<zam_connector::IZamDataChangeSubscriber> dataChangeSubscriber_;
    std::shared_ptr<zam_connector::IProductDataHolder> productDataHolder_;
    std::shared_ptr<zam_connector::IZamFileDownloader> fileDownloader_;
    std::shared_ptr<zam_connector::IZamClientCertsDownloader> certsDownloader_;
    std::shared_ptr<zam_connector::zam_locale::IZamLocaleInfo> localeInfo_;
    std::shared_ptr<zam_connector::zam_locale::IZamLocationInfo> locationInfo_;
};

}  // namespace zamctl
