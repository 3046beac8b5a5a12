#pragma once

#include "command_set.h"

namespace zamctl {

/// Declares every command.
void DeclareCommands(CommandSet& commands);

}  // namespace zamctl
