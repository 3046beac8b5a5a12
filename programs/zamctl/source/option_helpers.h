#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "values.h"

/// What the declarations of several commands have in common.

namespace zamctl {

/// A command; the global options may stand behind its name as well as before it.
inline CLI::App& AddCommand(CLI::App& parent, const std::string& name,
                            const std::string& description) {
    CLI::App* const command = parent.add_subcommand(name, description);
    command->fallthrough();
    return *command;
}

/// `--timeout`, whose duration goes to `target`.
template <typename Target>
CLI::Option* AddTimeout(CLI::App& command, Target& target, const std::string& description) {
    return command
        .add_option_function<std::string>(
            "--timeout",
            [&target](const std::string& text) { target = ParseSeconds("--timeout", text); },
            description)
        ->type_name("SECONDS");
}

/// An option that names a file. An empty name is taken as such: whoever opens it refuses it.
inline CLI::Option* AddFile(CLI::App& command, const std::string& name,
                            std::optional<std::string>& target, const std::string& description) {
    return command
        .add_option_function<std::string>(
            name, [&target](const std::string& file) { target = file; }, description)
        ->type_name("FILE");
}

}  // namespace zamctl
