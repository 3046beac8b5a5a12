#include "connection.h"

#include <cstdint>
#include <stdexcept>

#include "proxy_init.h"
#include "qel/exception.h"
#include "qel/utf.h"
#include "qx/conn_command_sender.h"
#include "qx/conn_controller.h"
#include "qx/conn_settings_holder.h"
#include "qx/endpoint_names.h"
#include "vd/service_locator.h"
#include "zam_conn_command_sender_proxy.h"
#include "zam_conn_controller_proxy.h"
#include "zam_conn_settings_holder_proxy.h"

namespace zamctl {
namespace {

namespace proxy = zam_connector::proxy;

/// Runs `make`, with the library's exceptions turned into ones that carry their text.
template <typename Make>
auto WithTexts(Make&& make) {
    try {
        return make();
    } catch (const qel::Exception& exception) {
        throw std::runtime_error(qel::ToUtf8(exception.Text()));
    }
}

/// The interface id of an endpoint that has to be there.
std::uint16_t NeedEndpoint(std::uint32_t handle, const char* endpoint) {
    try {
        return proxy::init::GetEndpointRiid(handle, endpoint);
    } catch (const qel::Exception& exception) {
        throw MissingEndpoint(qel::ToUtf8(exception.Text()));
    }
}

template <typename Record>
Record MakeRecord(void (*init)(Record*, VdZorTransport*, std::uint16_t), VdZorTransport* transport,
                  const char* endpoint) {
    Record record{};
    init(&record, transport, NeedEndpoint(transport->handle, endpoint));
    return record;
}

}  // namespace

Connection::Connection() = default;

Connection::~Connection() = default;

std::string Connection::ServiceName() const {
    return qx::kConnectorService;
}

ConnectorInterfaces Connection::Open() {
    return WithTexts([this]() -> ConnectorInterfaces {
        if (commandSender_ == nullptr) {
            const std::uint32_t handle = proxy::init::ConnectIpcService(qx::kConnectorService);
            transport_ = std::make_unique<VdZorTransport>();
            VdZorTransport_Init(transport_.get(), handle, 0, 0);
            if (transport_->handle != handle) {
                throw std::runtime_error("the transport to the service could not be initialised");
            }
            controller_ = std::make_unique<proxy::ZamConnControllerProxy>(
                MakeRecord(&qx_zam_connector_ConnController_proxy_init, transport_.get(),
                           qx::kConnControllerEndpoint));
            settingsHolder_ = std::make_unique<proxy::ZamConnSettingsHolderProxy>(
                MakeRecord(&qx_zam_connector_ConnSettingsHolder_proxy_init, transport_.get(),
                           qx::kConnSettingsHolderEndpoint));
            commandSender_ = std::make_unique<proxy::ZamConnCommandSenderProxy>(
                MakeRecord(&qx_zam_connector_ConnCommandSender_proxy_init, transport_.get(),
                           qx::kConnCommandSenderEndpoint));
        }
        return {*controller_, *settingsHolder_, *commandSender_};
    });
}

std::vector<EndpointReport> Connection::Endpoints() {
    return WithTexts([] {
        const std::uint32_t handle = proxy::init::ConnectIpcService(qx::kConnectorService);
        std::vector<EndpointReport> reports;
        for (const char* const name : {qx::kConnControllerEndpoint, qx::kConnSettingsHolderEndpoint,
                                       qx::kConnCommandSenderEndpoint}) {
            const std::uint16_t riid = ServiceLocatorGetRiid(handle, name);
            reports.push_back({name, riid == VD_UNKNOWN_RIID ? std::nullopt
                                                             : std::optional<std::uint16_t>(riid)});
        }
        return reports;
    });
}

}  // namespace zamctl
