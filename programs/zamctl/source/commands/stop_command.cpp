#include "commands/stop_command.h"

#include <nlohmann/json.hpp>

#include "codes.h"
#include "vocabulary/state_names.h"

namespace zamctl {

using zam_connector::ZamConnectorState;

void StopCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    const int code =
        context.Checked("stop the connection", [&] { return connector.controller.Stop(); });
    if (!options_.wait) {
        context.output.Confirmation(
            SuccessText(code, "stop requested", "already stopped; nothing to do"),
            {{"result", code}});
        return;
    }
    WaitForState(
        context, connector.controller,
        {.target = ZamConnectorState::Stopped, .timeout = options_.timeout, .hopeless = {}});
    context.output.Confirmation(
        SuccessText(code, "stopped", "already stopped; nothing to do"),
        {{"result", code}, {"state", zam_vocabulary::StateName(ZamConnectorState::Stopped)}});
}

}  // namespace zamctl
