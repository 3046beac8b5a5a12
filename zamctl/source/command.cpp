#include "command.h"

#include <fmt/format.h>

#include "runtime_directory_check.h"

namespace zamctl {

ConnectorInterfaces Context::Connector() {
    return Reach([](ConnectorProvider& from) { return from.Open(); });
}

void Context::ThrowConnectorFailure(const std::exception& exception) const {
    const std::string logged = records_.Cause();
    const std::string cause = logged.empty() ? exception.what() : logged;
    if (dynamic_cast<const MissingEndpoint*>(&exception) != nullptr) {
        throw ConnectorFailure(
            fmt::format("the connector service '{}' lacks an endpoint: {}", provider.ServiceName(),
                        cause),
            "Restart zam_connectord, and install one of zamctl's version if that does not help; "
            "'zamctl doctor' lists the endpoints.");
    }
    throw ConnectorFailure(
        fmt::format("cannot reach the connector service '{}': {}", provider.ServiceName(), cause),
        ConnectRemedy(system, provider.ServiceName()) + " 'zamctl doctor' tells more.");
}

}  // namespace zamctl
