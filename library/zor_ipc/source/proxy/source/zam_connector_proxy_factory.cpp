#include "zam_connector_proxy_factory.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "call_scope.h"
#include "common/unique_data_queue.h"
#include "connect_transport.h"
#include "data_handler/data_handler.h"
#include "data_handler/data_subscriber.h"
#include "data_handler/zam_conn_state_processor.h"
#include "data_handler/zam_conn_state_provider.h"
#include "data_handler/zam_data_processor.h"
#include "data_handler/zam_data_provider.h"
#include "entry_failure.h"
#include "product_data_holder_proxy.h"
#include "proxy_init.h"
#include "qor/utils/blocking_queue.h"
#include "qx/endpoint_names.h"
#include "zam_client_certs_downloader_proxy.h"
#include "zam_conn_command_sender_proxy.h"
#include "zam_conn_controller_proxy.h"
#include "zam_conn_settings_holder_proxy.h"
#include "zam_conn_state_subscriber_proxy.h"
#include "zam_connector/create_zam_connector.h"
#include "zam_connector_proxy.h"
#include "zam_data_change_subscriber_proxy.h"
#include "zam_data_provider_proxy.h"
#include "zam_file_downloader_proxy.h"
#include "zam_locale_info.h"

namespace zam_connector::proxy {
namespace {

/// A service that is connected to. The transport is not owned.
struct Service {
    std::uint32_t handle;
    VdZorTransport* transport;

    /// The IDL proxy record of one of its endpoints. Throws `qel::CheckFailedException` when it
    /// has none of that name.
    template <typename IdlProxy>
    IdlProxy Endpoint(void (*init)(IdlProxy*, VdZorTransport*, std::uint16_t),
                      const char* name) const {
        IdlProxy record{};
        init(&record, transport, init::GetEndpointRiid(handle, name));
        return record;
    }
};

/// The record of a notifier, whose `Unregister` only ends something at the service.
template <typename IdlProxy>
IdlProxy NotifierEndpoint(const Service& service,
                          void (*init)(IdlProxy*, VdZorTransport*, std::uint16_t),
                          std::uint16_t unregister, const char* name) {
    const IdlProxy record = service.Endpoint(init, name);
    VdZorTransport_SetFarewell(service.transport, record.riid, unregister);
    return record;
}

std::shared_ptr<IZamConnStateSubscriber> CreateStateSubscriber(const Service& connector) {
    using Operation = qx_zam_connector_ConnStateNotifier_operation;
    auto provider = std::make_unique<ZamConnStateProvider>(NotifierEndpoint(
        connector, qx_zam_connector_ConnStateNotifier_proxy_init,
        static_cast<std::uint16_t>(Operation::Unregister), qx::kConnStateNotifierEndpoint));
    auto factory = std::make_unique<ZamConnStateProcessorFactory>();
    auto subscriber = std::make_unique<DataSubscriber<int, qor::utils::BlockingQueue>>(
        std::move(provider), "zam_state_sub");
    auto handler =
        std::make_unique<DataHandler<int, IZamConnStateManager, qor::utils::BlockingQueue>>(
            std::move(subscriber), std::move(factory), "zam_state_hnd");
    return std::make_shared<ZamConnStateSubscriberProxy>(std::move(handler));
}

std::shared_ptr<IZamDataChangeSubscriber> CreateDataChangeSubscriber(
    const Service& connector, std::shared_ptr<IZamDataProvider> dataProvider) {
    using Operation = qx_zam_connector_ZamDataNotifier_operation;
    auto provider = std::make_unique<ZamDataProvider>(NotifierEndpoint(
        connector, qx_zam_connector_ZamDataNotifier_proxy_init,
        static_cast<std::uint16_t>(Operation::Unregister), qx::kZamDataNotifierEndpoint));
    auto factory = std::make_unique<ZamDataProcessorFactory>(std::move(dataProvider));
    auto subscriber = std::make_unique<DataSubscriber<unsigned int, common::UniqueDataQueue>>(
        std::move(provider), "zam_data_sub");
    auto handler =
        std::make_unique<DataHandler<unsigned int, IZamDataManager, common::UniqueDataQueue>>(
            std::move(subscriber), std::move(factory), "zam_data_hnd");
    return std::make_shared<ZamDataChangeSubscriberProxy>(std::move(handler));
}

}  // namespace

std::unique_ptr<IZamConnector> ZamConnectorProxyFactory::CreateZamConnectorProxy(
    const std::string& connectorService, const std::string& fileDownloaderService) {
    // Declared before everything that talks through the transports, so that they go last whatever
    // fails.
    std::vector<std::unique_ptr<VdZorTransport>> transports;
    transports.reserve(2);

    const std::uint32_t connectorHandle = init::ConnectIpcService(connectorService);
    const std::uint32_t fileHandle = init::ConnectIpcService(fileDownloaderService);
    auto connectorTransport = ConnectTransport(connectorHandle);
    auto fileTransport = ConnectTransport(fileHandle);
    const Service connector{connectorHandle, connectorTransport.get()};
    const Service files{fileHandle, fileTransport.get()};

    auto controller = std::make_unique<ZamConnControllerProxy>(connector.Endpoint(
        qx_zam_connector_ConnController_proxy_init, qx::kConnControllerEndpoint));
    auto settingsHolder = std::make_unique<ZamConnSettingsHolderProxy>(connector.Endpoint(
        qx_zam_connector_ConnSettingsHolder_proxy_init, qx::kConnSettingsHolderEndpoint));
    auto connStateSubscriber = CreateStateSubscriber(connector);
    auto commandSender = std::make_unique<ZamConnCommandSenderProxy>(connector.Endpoint(
        qx_zam_connector_ConnCommandSender_proxy_init, qx::kConnCommandSenderEndpoint));
    std::shared_ptr<IZamDataProvider> dataProvider =
        std::make_unique<ZamDataProviderProxy>(connector.Endpoint(
            qx_zam_connector_ZamDataProvider_proxy_init, qx::kZamDataProviderEndpoint));
    auto dataChangeSubscriber = CreateDataChangeSubscriber(connector, dataProvider);
    auto productDataHolder = std::make_unique<ProductDataHolderProxy>(connector.Endpoint(
        qx_zam_connector_ProductDataHolder_proxy_init, qx::kProductDataHolderEndpoint));
    std::shared_ptr<IZamFileDownloader> fileDownloader = std::make_unique<ZamFileDownloaderProxy>(
        files.Endpoint(qx_zam_connector_ZamFileDownloader_proxy_init, qx::kFileDownloaderEndpoint));
    auto clientCertsDownloader = std::make_unique<ZamClientCertsDownloaderProxy>(connector.Endpoint(
        qx_zam_connector_ZamClientCertsDownloader_proxy_init, qx::kClientCertsDownloaderEndpoint));

    const zam_locale::MicrosoftZamLocaleFactory localeFactory;
    std::shared_ptr<zam_locale::IZamLocationInfo> locationInfo =
        localeFactory.CreateZamLocationInfo();
    std::shared_ptr<zam_locale::IZamLocaleInfo> localeInfo = localeFactory.CreateZamLocaleInfo();

    transports.push_back(std::move(connectorTransport));
    transports.push_back(std::move(fileTransport));
    return std::make_unique<ZamConnectorProxy>(
        std::move(transports), std::move(controller), std::move(settingsHolder),
        std::move(connStateSubscriber), std::move(commandSender), std::move(dataProvider),
        std::move(dataChangeSubscriber), std::move(productDataHolder), std::move(fileDownloader),
        std::move(localeInfo), std::move(locationInfo), std::move(clientCertsDownloader));
}

}  // namespace zam_connector::proxy

namespace zam_connector {

int CreateZamConnector(std::shared_ptr<IZamConnector>& connector,
                       const ZamConnCreateParameters& /*params*/) noexcept {
    *VdZorTransport_LastStatus() = 0;
    proxy::ReadDefaultTimeout();
    const proxy::SetUpScope scope;
    try {
        proxy::ZamConnectorProxyFactory factory;
        connector =
            factory.CreateZamConnectorProxy(qx::kConnectorService, qx::kFileDownloaderService);
        return qel::kNoError;
    } catch (...) {
        return proxy::EntryFailure({"zam_connector_proxy_factory", 149, "CreateZamConnector"});
    }
}

}  // namespace zam_connector
