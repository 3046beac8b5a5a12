#pragma once

#include <memory>
#include <string>

#include "command.h"
#include "commands/certs_command.h"
#include "commands/file_command.h"
#include "commands/watch_command.h"

namespace CLI {
class App;
}

namespace zamctl {

/// The options of the commands that watch, and that fetch files, certificates and locales.
struct LiveOptions {
    WatchCommand::Options watch;
    FileGetCommand::Options file;
    CertsCommand::Options certs;
};

/// Declares the commands. As `DeclareCommands`.
void DeclareLiveCommands(CLI::App& app, LiveOptions& options);

/// Declares `--count` for a command that watches; `needs` is the option without which it means
/// nothing.
void DeclareNoticeCount(CLI::App& command, WatchCommand::Options& options,
                        const std::string& needs = {});

/// Makes the command that a successful parse has chosen; null when it is another one.
std::unique_ptr<Command> MakeLiveCommand(const CLI::App& app, const LiveOptions& options);

}  // namespace zamctl
