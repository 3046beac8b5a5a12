#pragma once

#include <optional>

#include "product_data_holder_proxy.h"
#include "vd/zor_transport.h"
#include "zam_conn_command_sender_proxy.h"
#include "zam_conn_controller_proxy.h"
#include "zam_conn_settings_holder_proxy.h"
#include "zam_data_provider_proxy.h"

namespace zam_connector::test {

/// The proxies of connection control and data over one transport to the connector service of the
/// runtime directory in force. Thread-safe as its interfaces are.
class RealConnection {
public:
    /// Throws `qel::CheckFailedException` when the service or one of its endpoints is not there.
    RealConnection();
    RealConnection(const RealConnection&) = delete;
    RealConnection& operator=(const RealConnection&) = delete;

    IZamConnController& Controller() { return *controller_; }
    IZamConnSettingsHolder& SettingsHolder() { return *settingsHolder_; }
    IZamConnCommandSender& CommandSender() { return *commandSender_; }
    IZamDataProvider& DataProvider() { return *dataProvider_; }
    IProductDataHolder& ProductDataHolder() { return *productDataHolder_; }

    const VdZorTransport& Transport() const noexcept { return transport_; }

private:
    VdZorTransport transport_{};
    std::optional<proxy::ZamConnControllerProxy> controller_;
    std::optional<proxy::ZamConnSettingsHolderProxy> settingsHolder_;
    std::optional<proxy::ZamConnCommandSenderProxy> commandSender_;
    std::optional<proxy::ZamDataProviderProxy> dataProvider_;
    std::optional<proxy::ProductDataHolderProxy> productDataHolder_;
};

}  // namespace zam_connector::test
