#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "library/zor_ipc/notification/pipelines.h"
#include "product_data_holder_proxy.h"
#include "zam_client_certs_downloader_proxy.h"
#include "zam_conn_command_sender_proxy.h"
#include "zam_conn_controller_proxy.h"
#include "zam_conn_settings_holder_proxy.h"
#include "zam_connector_proxy.h"
#include "zam_connector_testing/scripted_transport.h"
#include "zam_data_provider_proxy.h"
#include "zam_file_downloader_proxy.h"
#include "zam_locale_info.h"

namespace zam_connector::test {

/// What an aggregate is made of, each part real; those that are released last are noted in order.
struct Parts {
    testing::ScriptedTransport service;
    std::vector<std::string> released;

    std::vector<std::unique_ptr<VdZorTransport>> transports = MakeTransports();
    std::shared_ptr<IZamConnController> controller =
        Noted("controller",
              Proxy<proxy::ZamConnControllerProxy>(qx_zam_connector_ConnController_proxy_init));
    std::shared_ptr<IZamConnSettingsHolder> settingsHolder = Noted(
        "settingsHolder",
        Proxy<proxy::ZamConnSettingsHolderProxy>(qx_zam_connector_ConnSettingsHolder_proxy_init));
    std::shared_ptr<IZamConnStateSubscriber> stateSubscriber =
        Noted("stateSubscriber", StatePipeline().proxy);
    std::shared_ptr<IZamConnCommandSender> commandSender = Noted(
        "commandSender",
        Proxy<proxy::ZamConnCommandSenderProxy>(qx_zam_connector_ConnCommandSender_proxy_init));
    std::shared_ptr<IZamDataProvider> dataProvider =
        Noted("dataProvider",
              Proxy<proxy::ZamDataProviderProxy>(qx_zam_connector_ZamDataProvider_proxy_init));
    std::shared_ptr<IZamDataChangeSubscriber> dataChangeSubscriber =
        Noted("dataChangeSubscriber", DataPipeline().proxy);
    std::shared_ptr<IProductDataHolder> productDataHolder =
        Noted("productDataHolder",
              Proxy<proxy::ProductDataHolderProxy>(qx_zam_connector_ProductDataHolder_proxy_init));
    std::shared_ptr<IZamFileDownloader> fileDownloader =
        Noted("fileDownloader",
              Proxy<proxy::ZamFileDownloaderProxy>(qx_zam_connector_ZamFileDownloader_proxy_init));
    std::shared_ptr<zam_locale::IZamLocaleInfo> localeInfo = Noted<zam_locale::IZamLocaleInfo>(
        "localeInfo", zam_locale::MicrosoftZamLocaleFactory().CreateZamLocaleInfo());
    std::shared_ptr<zam_locale::IZamLocationInfo> locationInfo =
        Noted<zam_locale::IZamLocationInfo>(
            "locationInfo", zam_locale::MicrosoftZamLocaleFactory().CreateZamLocationInfo());
    std::shared_ptr<IZamClientCertsDownloader> clientCertsDownloader =
        Noted("clientCertsDownloader", Proxy<proxy::ZamClientCertsDownloaderProxy>(
                                           qx_zam_connector_ZamClientCertsDownloader_proxy_init));

    /// Hands everything over but what a test has reset or changed.
    std::unique_ptr<IZamConnector> Assemble() {
        return std::make_unique<proxy::ZamConnectorProxy>(
            std::move(transports), std::move(controller), std::move(settingsHolder),
            std::move(stateSubscriber), std::move(commandSender), std::move(dataProvider),
            std::move(dataChangeSubscriber), std::move(productDataHolder),
            std::move(fileDownloader), std::move(localeInfo), std::move(locationInfo),
            std::move(clientCertsDownloader));
    }

private:
    std::vector<std::unique_ptr<VdZorTransport>> MakeTransports() {
        std::vector<std::unique_ptr<VdZorTransport>> made;
        for (int each = 0; each < 2; ++each) {
            made.push_back(std::make_unique<VdZorTransport>());
            service.Attach(made.back().get());
        }
        return made;
    }

    template <typename Implementation, typename Record>
    std::shared_ptr<Implementation> Proxy(void (*init)(Record*, VdZorTransport*, std::uint16_t)) {
        Record record{};
        init(&record, service.Get(), 7);
        return std::make_shared<Implementation>(record);
    }

    /// The same object, with its release noted.
    template <typename T>
    std::shared_ptr<T> Noted(const char* name, std::shared_ptr<T> part) {
        T* const object = part.get();
        return {object, [this, name, part = std::move(part)](T*) mutable {
                    released.emplace_back(name);
                    part.reset();
                }};
    }
};

}  // namespace zam_connector::test
