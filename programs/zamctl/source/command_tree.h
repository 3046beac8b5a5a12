#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "command_set.h"

namespace zamctl {

/// Every command with its options, and the parser that knows them; made for one command line.
struct CommandTree {
    /// `globals` must outlive the object.
    explicit CommandTree(Globals& globals);
    CommandTree(const CommandTree&) = delete;
    CommandTree& operator=(const CommandTree&) = delete;

    CLI::App app;
    Declared declared;
};

/// The option of a command, or of those that it belongs to, that an argument gives without a value
/// in the same word; null when there is none.
const CLI::Option* FindOption(const CLI::App& app, const std::string& argument);

/// Whether an option is followed by a value.
bool TakesValue(const CLI::Option& option);

/// The words that can stand behind a command.
std::vector<std::string> CommandNames(const CLI::App& app);

/// The names of the options of a command and of those that it belongs to: the long ones, or all.
std::vector<std::string> OptionNames(const CLI::App& app, bool withShort);

}  // namespace zamctl
