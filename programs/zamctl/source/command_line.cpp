#include "command_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "command_tree.h"
#include "commands/complete_command.h"
#include "failure.h"
#include "nearest.h"
#include "values.h"
#include "version.h"

namespace zamctl {
namespace {

bool Contains(const std::vector<std::string>& arguments, std::string_view wanted) {
    return std::find(arguments.begin(), arguments.end(), wanted) != arguments.end();
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
            isValue = option != nullptr && TakesValue(*option);
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
    throw UsageError(
        fmt::format("unknown option '{}'{}", WithoutCredentials(name),
                    SuggestName(name, OptionNames(ChosenCommand(app), false), "options")));
}

}  // namespace

void ParseCommandLine(const std::vector<std::string>& arguments, Invocation& invocation) {
    // What follows is a command line itself, of which anything may be wrong: no parser sees it.
    if (arguments.size() >= 2 && arguments[0] == "complete" && arguments[1] == "--") {
        invocation.commandName = arguments[0];
        invocation.command = std::make_shared<CompleteCommand>(
            std::vector<std::string>(arguments.begin() + 2, arguments.end()));
        return;
    }
    CommandTree tree(invocation.globals);
    CLI::App& app = tree.app;
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
    invocation.command = tree.declared.commands.at(&ChosenCommand(app));
}

}  // namespace zamctl
