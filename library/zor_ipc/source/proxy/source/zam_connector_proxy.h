#pragma once

#include <memory>
#include <vector>

#include "vd/zor_transport.h"
#include "zam_connector/i_zam_connector.h"

namespace zam_connector::proxy {

/// `IZamConnector`: owns the transports and shares the interfaces. Nothing changes after the
/// constructor.
class ZamConnectorProxy final : public IZamConnector {
public:
    /// Throws `qel::InvalidArgumentException` with code 0 and a line of its own for each transport
    /// that is null, without operations or without handle, and for each interface that is null.
    ZamConnectorProxy(std::vector<std::unique_ptr<VdZorTransport>> transports,
                      std::shared_ptr<IZamConnController> controller,
                      std::shared_ptr<IZamConnSettingsHolder> settingsHolder,
                      std::shared_ptr<IZamConnStateSubscriber> stateSubscriber,
                      std::shared_ptr<IZamConnCommandSender> commandSender,
                      std::shared_ptr<IZamDataProvider> dataProvider,
                      std::shared_ptr<IZamDataChangeSubscriber> dataChangeSubscriber,
                      std::shared_ptr<IProductDataHolder> productDataHolder,
                      std::shared_ptr<IZamFileDownloader> fileDownloader,
                      std::shared_ptr<zam_locale::IZamLocaleInfo> localeInfo,
                      std::shared_ptr<zam_locale::IZamLocationInfo> locationInfo,
                      std::shared_ptr<IZamClientCertsDownloader> clientCertsDownloader);
    ZamConnectorProxy(const ZamConnectorProxy&) = delete;
    ZamConnectorProxy& operator=(const ZamConnectorProxy&) = delete;

    /// Releases the interfaces, the last first, and then the transports, the first first. Those go
    /// with the last handler thread instead when one is still running: it may be the caller.
    ~ZamConnectorProxy() override;

    int GetZamController(std::shared_ptr<IZamConnController>& controller) noexcept override;
    int GetSettingsHolder(
        std::shared_ptr<IZamConnSettingsHolder>& settingsHolder) noexcept override;
    int GetStateChangeSubscriber(
        std::shared_ptr<IZamConnStateSubscriber>& stateSubscriber) noexcept override;
    int GetCommandSender(std::shared_ptr<IZamConnCommandSender>& commandSender) noexcept override;
    int GetDataProvider(std::shared_ptr<IZamDataProvider>& dataProvider) noexcept override;
    int GetDataChangeSubscriber(
        std::shared_ptr<IZamDataChangeSubscriber>& dataChangeSubscriber) noexcept override;
    int GetProductDataHolder(
        std::shared_ptr<IProductDataHolder>& productDataHolder) noexcept override;
    int GetFileDownloader(std::shared_ptr<IZamFileDownloader>& fileDownloader) noexcept override;
    int GetZamLocaleInfo(std::shared_ptr<zam_locale::IZamLocaleInfo>& localeInfo) noexcept override;
    int GetZamLocationInfo(
        std::shared_ptr<zam_locale::IZamLocationInfo>& locationInfo) noexcept override;
    int GetClientCertsDownloader(
        std::shared_ptr<IZamClientCertsDownloader>& clientCertsDownloader) noexcept override;

private:
    class Transports;

    void CheckTransports() const;
    void CheckInterfaces() const;

    std::shared_ptr<Transports> transports_;
    std::shared_ptr<IZamConnController> controller_;
    std::shared_ptr<IZamConnSettingsHolder> settingsHolder_;
    std::shared_ptr<IZamConnStateSubscriber> stateSubscriber_;
    std::shared_ptr<IZamConnCommandSender> commandSender_;
    std::shared_ptr<IZamDataProvider> dataProvider_;
    std::shared_ptr<IZamDataChangeSubscriber> dataChangeSubscriber_;
    std::shared_ptr<IProductDataHolder> productDataHolder_;
    std::shared_ptr<IZamFileDownloader> fileDownloader_;
    std::shared_ptr<zam_locale::IZamLocaleInfo> localeInfo_;
    std::shared_ptr<zam_locale::IZamLocationInfo> locationInfo_;
    std::shared_ptr<IZamClientCertsDownloader> clientCertsDownloader_;
};

}  // namespace zam_connector::proxy
