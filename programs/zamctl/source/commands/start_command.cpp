#include "commands/start_command.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "codes.h"
#include "vocabulary/state_names.h"

namespace zamctl {

using zam_connector::ZamConnectionParameters;
using zam_connector::ZamConnectorState;

StartCommand::StartCommand(Options options) : options_(std::move(options)) {
    const ZamConnectionParameters& parameters = options_.parameters;
    const std::size_t bytes = parameters.serverAddress.size() + parameters.productName.size() +
                              parameters.deviceName.size() + parameters.proxyUrl.size();
    if (bytes > kMaxStartTextBytes) {
        throw UsageError(
            fmt::format("--server, --product, --device and --proxy together have {} bytes; at "
                        "most {} are allowed",
                        bytes, kMaxStartTextBytes));
    }
}

void StartCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    const ZamConnectionParameters& parameters = options_.parameters;
    const int code = context.Checked("start the connection",
                                     [&] { return connector.controller.Start(parameters); });
    if (!options_.wait) {
        context.output.Confirmation(
            SuccessText(code,
                        fmt::format("started: connecting to {}:{}", parameters.serverAddress,
                                    parameters.serverPort),
                        "already started; nothing to do"),
            {{"result", code}});
        return;
    }
    WaitForState(context, connector.controller,
                 {.target = ZamConnectorState::Connected,
                  .timeout = options_.timeout,
                  .hopeless = ZamConnectorState::Refused});
    context.output.Confirmation(
        SuccessText(code, "connected", "already started; connected"),
        {{"result", code}, {"state", zam_vocabulary::StateName(ZamConnectorState::Connected)}});
}

}  // namespace zamctl
