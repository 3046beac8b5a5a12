#pragma once

#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "commands/ping_command.h"
#include "commands/settings_command.h"
#include "commands/start_command.h"
#include "commands/state_command.h"
#include "commands/stop_command.h"
#include "data_options.h"
#include "live_options.h"

namespace CLI {
class App;
}

namespace zamctl {

/// The options of all commands; a command line fills those of one.
struct CommandOptions {
    StateCommand::Options state;
    WatchCommand::Options stateWatch{.kinds = {NoticeKind::State}};
    bool watchState = false;
    StartCommand::Options start;
    StopCommand::Options stop;
    SettingsSetCommand::Options settingsSet;
    std::string event;
    std::vector<std::string> codes;
    bool allCodes = false;
    PingCommand::Options ping;
    DataOptions data;
    LiveOptions live;
};

/// Declares every command with its options, which are written to `options` by the parse; that must
/// outlive `app`. The parse throws `UsageError` for values that are out of range.
void DeclareCommands(CLI::App& app, CommandOptions& options);

/// Makes the command that a successful parse has chosen. Throws `UsageError` when its options do
/// not go together.
std::unique_ptr<Command> MakeCommand(const CLI::App& app, const CommandOptions& options);

}  // namespace zamctl
