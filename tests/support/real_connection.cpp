#include "support/real_connection.h"

#include "proxy_init.h"
#include "qx/endpoint_names.h"

namespace zam_connector::test {
namespace {

template <typename Record>
Record MakeRecord(void (*init)(Record*, VdZorTransport*, std::uint16_t), VdZorTransport& transport,
                  const char* endpoint) {
    Record record{};
    init(&record, &transport, proxy::init::GetEndpointRiid(transport.handle, endpoint));
    return record;
}

}  // namespace

RealConnection::RealConnection() {
    VdZorTransport_Init(&transport_, proxy::init::ConnectIpcService(qx::kConnectorService), 0, 0);
    controller_.emplace(MakeRecord(&qx_zam_connector_ConnController_proxy_init, transport_,
                                   qx::kConnControllerEndpoint));
    settingsHolder_.emplace(MakeRecord(&qx_zam_connector_ConnSettingsHolder_proxy_init, transport_,
                                       qx::kConnSettingsHolderEndpoint));
    commandSender_.emplace(MakeRecord(&qx_zam_connector_ConnCommandSender_proxy_init, transport_,
                                      qx::kConnCommandSenderEndpoint));
    dataProvider_.emplace(MakeRecord(&qx_zam_connector_ZamDataProvider_proxy_init, transport_,
                                     qx::kZamDataProviderEndpoint));
    productDataHolder_.emplace(MakeRecord(&qx_zam_connector_ProductDataHolder_proxy_init,
                                          transport_, qx::kProductDataHolderEndpoint));
}

}  // namespace zam_connector::test
