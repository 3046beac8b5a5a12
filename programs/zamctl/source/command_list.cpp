#include "command_list.h"

// Each of these stands in a file of `commands` that is named for it. The order is that of the help.
#define ZAMCTL_COMMANDS(COMMAND) \
    COMMAND(State)               \
    COMMAND(Start)               \
    COMMAND(Stop)                \
    COMMAND(Settings)            \
    COMMAND(Sync)                \
    COMMAND(Event)               \
    COMMAND(Data)                \
    COMMAND(Upload)              \
    COMMAND(Watch)               \
    COMMAND(File)                \
    COMMAND(Certs)               \
    COMMAND(Locales)             \
    COMMAND(Explain)             \
    COMMAND(Ping)                \
    COMMAND(Doctor)

namespace zamctl {

#define ZAMCTL_ANNOUNCE(name) void Declare##name(CommandSet& commands);
ZAMCTL_COMMANDS(ZAMCTL_ANNOUNCE)

void DeclareCommands(CommandSet& commands) {
#define ZAMCTL_DECLARE(name) Declare##name(commands);
    ZAMCTL_COMMANDS(ZAMCTL_DECLARE)
}

}  // namespace zamctl
