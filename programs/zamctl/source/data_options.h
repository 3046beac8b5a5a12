#pragma once

#include <memory>
#include <optional>
#include <string>

#include "command.h"
#include "commands/data_command.h"

namespace CLI {
class App;
}

namespace zamctl {

/// The options of the commands that fetch and upload data.
struct DataOptions {
    DataCommand::Options get;
    std::string uploadFile;
};

/// Declares the commands. As `DeclareCommands`.
void DeclareDataCommands(CLI::App& app, DataOptions& options);

/// Makes the command that a successful parse has chosen; null when it is another one. Throws
/// `UsageError` when its options do not go together.
std::unique_ptr<Command> MakeDataCommand(const CLI::App& app, const DataOptions& options);

}  // namespace zamctl
