#include "commands/sync_command.h"

#include "codes.h"
#include "command_set.h"

namespace zamctl {

void SyncCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    const int code = context.Checked("schedule a synchronisation",
                                     [&] { return connector.commandSender.ScheduleSync(); });
    context.output.Confirmation(SuccessText(code, "synchronisation scheduled", "nothing to do"),
                                {{"result", code}});
}

void DeclareSync(CommandSet& commands) {
    commands.Add("sync", "Schedule a synchronisation with the server",
                 std::make_shared<SyncCommand>());
}

}  // namespace zamctl
