#pragma once

#include <memory>

#include "zam_connector/i_product_data_holder.h"
#include "zam_connector/i_zam_client_certs_downloader.h"
#include "zam_connector/i_zam_conn_command_sender.h"
#include "zam_connector/i_zam_conn_controller.h"
#include "zam_connector/i_zam_conn_settings_holder.h"
#include "zam_connector/i_zam_conn_state_subscriber.h"
#include "zam_connector/i_zam_data_change_subscriber.h"
#include "zam_connector/i_zam_data_provider.h"
#include "zam_connector/i_zam_file_downloader.h"
#include "zam_connector/i_zam_locale_info.h"
#include "zam_connector/i_zam_location_info.h"

namespace zam_connector {

/// A client's connector: the way to all interfaces. `CreateZamConnector` makes it.
///
/// Each operation lets the given pointer share the interface, whatever it held before, and returns
/// 0; none can fail, none blocks. Thread-safe.
///
/// The connector owns what the interfaces talk through. An interface, with the exception of the two
/// locale tables, must not be used when the connector has been destroyed, though it may still be
/// released then. Dropping the connector ends the notifications of its subscribers that nobody
/// else holds. It asks the service to end them, and may block on that, but never waits for an
/// observer, so that it may be done in one: while a notice is being told the drop returns at once,
/// and the observers that are left of that notice are called after it. `Unsubscribe` first, where
/// that must not be. A service that is there and refuses to end them may end the process
/// (`docs/notification.md`).
class IZamConnector {
public:
    virtual ~IZamConnector() = default;

    virtual int GetZamController(std::shared_ptr<IZamConnController>& controller) noexcept = 0;
    virtual int GetSettingsHolder(
        std::shared_ptr<IZamConnSettingsHolder>& settingsHolder) noexcept = 0;
    virtual int GetStateChangeSubscriber(
        std::shared_ptr<IZamConnStateSubscriber>& stateSubscriber) noexcept = 0;
    virtual int GetCommandSender(
        std::shared_ptr<IZamConnCommandSender>& commandSender) noexcept = 0;
    virtual int GetDataProvider(std::shared_ptr<IZamDataProvider>& dataProvider) noexcept = 0;
    virtual int GetDataChangeSubscriber(
        std::shared_ptr<IZamDataChangeSubscriber>& dataChangeSubscriber) noexcept = 0;
    virtual int GetProductDataHolder(
        std::shared_ptr<IProductDataHolder>& productDataHolder) noexcept = 0;
    virtual int GetFileDownloader(std::shared_ptr<IZamFileDownloader>& fileDownloader) noexcept = 0;
    virtual int GetZamLocaleInfo(
        std::shared_ptr<zam_locale::IZamLocaleInfo>& localeInfo) noexcept = 0;
    virtual int GetZamLocationInfo(
        std::shared_ptr<zam_locale::IZamLocationInfo>& locationInfo) noexcept = 0;
    virtual int GetClientCertsDownloader(
        std::shared_ptr<IZamClientCertsDownloader>& clientCertsDownloader) noexcept = 0;
};

}  // namespace zam_connector
