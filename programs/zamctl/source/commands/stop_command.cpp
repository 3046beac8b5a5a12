#include "commands/stop_command.h"

#include "codes.h"
#include "command_set.h"
#include "vocabulary/state_names.h"

namespace zamctl {

using zam_connector::ZamConnectorState;

void StopCommand::Declare(Options& options) {
    options.Flag("--wait", waits_, "Wait until stopped");
}

void StopCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    const int code =
        context.Checked("stop the connection", [&] { return connector.controller.Stop(); });
    if (!waits_) {
        context.output.Confirmation(
            SuccessText(code, "stop requested", "already stopped; nothing to do"),
            {{"result", code}});
        return;
    }
    WaitForState(context, connector.controller,
                 {.target = ZamConnectorState::Stopped, .hopeless = {}});
    context.output.Confirmation(
        SuccessText(code, "stopped", "already stopped; nothing to do"),
        {{"result", code}, {"state", zam_vocabulary::StateName(ZamConnectorState::Stopped)}});
}

void DeclareStop(CommandSet& commands) {
    commands.Add("stop", "Stop the connection to the server", std::make_shared<StopCommand>());
}

}  // namespace zamctl
