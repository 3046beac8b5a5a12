#pragma once

#include <memory>
#include <string>
#include <vector>

#include "command_set.h"

namespace zamctl {

/// What a command line asks for.
struct Invocation {
    Globals globals;
    std::string commandName;           ///< "settings set"; empty when none was recognised
    std::shared_ptr<Command> command;  ///< null when there is information to print instead
    std::string information;           ///< help or version, without the last line end
};

/// Reads the arguments behind the program's name. Fills `invocation` as far as it comes, so that
/// the message about a throw can name the command. Throws `UsageError`.
void ParseCommandLine(const std::vector<std::string>& arguments, Invocation& invocation);

}  // namespace zamctl
