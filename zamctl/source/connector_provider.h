#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "zam_connector/i_zam_conn_command_sender.h"
#include "zam_connector/i_zam_conn_controller.h"
#include "zam_connector/i_zam_conn_settings_holder.h"

namespace zamctl {

/// The interfaces that the commands call; owned by the provider that gave them.
struct ConnectorInterfaces {
    zam_connector::IZamConnController& controller;
    zam_connector::IZamConnSettingsHolder& settingsHolder;
    zam_connector::IZamConnCommandSender& commandSender;
};

/// One endpoint of the service, and its interface id when the service knows it.
struct EndpointReport {
    std::string name;
    std::optional<std::uint16_t> riid;
};

/// The service is there, but does not give an endpoint that the connector needs.
class MissingEndpoint : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Where the commands get the connector from. One thread at a time.
class ConnectorProvider {
public:
    virtual ~ConnectorProvider() = default;

    /// Name of the connector service.
    virtual std::string ServiceName() const = 0;

    /// Makes the connector, once. Blocks while the service is connected to. Throws a
    /// `MissingEndpoint`, or another `std::exception` that says why when it cannot be made.
    virtual ConnectorInterfaces Open() = 0;

    /// Looks every endpoint up that `Open` needs. Throws as `Open` does when the service itself is
    /// not there.
    virtual std::vector<EndpointReport> Endpoints() = 0;
};

}  // namespace zamctl
