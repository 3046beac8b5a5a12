#include "commands/sync_command.h"

#include <nlohmann/json.hpp>

#include "codes.h"

namespace zamctl {

void SyncCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    const int code = context.Checked("schedule a synchronisation",
                                     [&] { return connector.commandSender.ScheduleSync(); });
    context.output.Confirmation(SuccessText(code, "synchronisation scheduled", "nothing to do"),
                                {{"result", code}});
}

}  // namespace zamctl
