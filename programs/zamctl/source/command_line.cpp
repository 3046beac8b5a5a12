#include "command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "command_options.h"
#include "failure.h"
#include "nearest.h"
#include "values.h"
#include "version.h"

namespace zamctl {
namespace {

constexpr const char* kFooter =
    "Exit status: 0 done, 1 usage, 2 the service or the library answered with a failure code,\n"
    "3 the connector could not be made.";

bool Contains(const std::vector<std::string>& arguments, std::string_view wanted) {
    return std::find(arguments.begin(), arguments.end(), wanted) != arguments.end();
}

std::vector<std::string> CommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* const command :
         app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    return names;
}

/// The long options of a command and of those that it belongs to.
std::vector<std::string> OptionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* level = &app; level != nullptr; level = level->get_parent()) {
        for (const CLI::Option* const option : level->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                if (!Contains(names, "--" + name)) {
                    names.push_back("--" + name);
                }
            }
        }
    }
    return names;
}

/// The option of a command, or of those that it belongs to, that an argument gives without a value
/// in the same word; null when there is none.
const CLI::Option* FindOption(const CLI::App& app, const std::string& argument) {
    for (const CLI::App* level = &app; level != nullptr; level = level->get_parent()) {
        if (const CLI::Option* const option = level->get_option_no_throw(argument)) {
            return option;
        }
    }
    return nullptr;
}

/// Checks the words that choose the command before the options are looked at: what the parser says
/// of a wrong one does not tell which words there are.
void CheckCommandWords(const CLI::App& app, const std::vector<std::string>& arguments,
                       std::string& commandName) {
    const CLI::App* level = &app;
    bool isValue = false;
    bool isUnknown = false;
    for (const std::string& argument : arguments) {
        if (std::exchange(isValue, false)) {
            continue;
        }
        if (argument.starts_with('-')) {
            const CLI::Option* const option = FindOption(*level, argument);
            isValue = option != nullptr && option->get_items_expected_max() > 0;
            isUnknown = isUnknown || (option == nullptr && argument.find('=') == std::string::npos);
            continue;
        }
        const std::vector<std::string> names = CommandNames(*level);
        // A word that need not be there may be the value of an option that is not known.
        if (names.empty() || (isUnknown && level->get_require_subcommand_min() == 0)) {
            return;
        }
        if (std::find(names.begin(), names.end(), argument) == names.end()) {
            throw UsageError(fmt::format(
                "'{}' is no {}{}", WithoutCredentials(argument),
                commandName.empty() ? "command" : fmt::format("command of '{}'", commandName),
                SuggestName(argument, names, "commands")));
        }
        level = level->get_subcommand(argument);
        commandName += (commandName.empty() ? "" : " ") + argument;
    }
    const std::vector<std::string> names = CommandNames(*level);
    const bool informs = Contains(arguments, "--help") || Contains(arguments, "-h") ||
                         Contains(arguments, "--version");
    if (level->get_require_subcommand_min() > 0 && !informs) {
        throw UsageError(fmt::format("no command given{}", SuggestName("", names, "commands")));
    }
}

/// The innermost command that was recognised.
const CLI::App& ChosenCommand(const CLI::App& app) {
    const CLI::App* chosen = &app;
    while (!chosen->get_subcommands().empty()) {
        chosen = chosen->get_subcommands().front();
    }
    return *chosen;
}

[[noreturn]] void ThrowUnexpected(const CLI::App& app) {
    const std::vector<std::string> unexpected = app.remaining(true);
    const std::string first = unexpected.empty() ? std::string() : unexpected.front();
    if (first.size() < 2 || first.front() != '-') {
        throw UsageError(fmt::format("unexpected argument '{}'", WithoutCredentials(first)));
    }
    // What stands behind the equals sign may be a secret meant for an option spelt wrong.
    const std::string name = first.substr(0, first.find('='));
    throw UsageError(fmt::format("unknown option '{}'{}", WithoutCredentials(name),
                                 SuggestName(name, OptionNames(ChosenCommand(app)), "options")));
}

void DeclareGlobals(CLI::App& app, Invocation& invocation) {
    app.set_help_flag("-h,--help", "Print this help and end");
    app.set_version_flag("--version", std::string("zamctl ") + kVersion,
                         "Print the version and end");
    app.add_flag("--json", invocation.format.json, "Print results as JSON, one document in a line");
    app.add_flag("--quiet", invocation.format.quiet, "Print nothing that only confirms or details");
    app.add_flag("-v,--verbose", invocation.verbose,
                 "Print the library's log records as they come, to standard error");
    app.footer(kFooter);
    app.require_subcommand(1, 1);
}

}  // namespace

void ParseCommandLine(const std::vector<std::string>& arguments, Invocation& invocation) {
    CLI::App app("Steers the connector service and shows what it does.", "zamctl");
    DeclareGlobals(app, invocation);
    CommandOptions options;
    DeclareCommands(app, options);
    CheckCommandWords(app, arguments, invocation.commandName);
    try {
        // The parser takes its arguments from the back.
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::CallForHelp&) {
        invocation.information = app.help();
        invocation.information.erase(invocation.information.find_last_not_of('\n') + 1);
        return;
    } catch (const CLI::CallForVersion&) {
        invocation.information = Contains(arguments, "--json")
                                     ? fmt::format(R"({{"version":"{}"}})", kVersion)
                                     : fmt::format("zamctl {}", kVersion);
        return;
    } catch (const CLI::ExtrasError&) {
        ThrowUnexpected(app);
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    invocation.command = MakeCommand(app, options);
}

}  // namespace zamctl
