#include "command_tree.h"

#include <fmt/format.h>

#include <algorithm>

#include "command_list.h"
#include "values.h"
#include "version.h"

namespace zamctl {
namespace {

constexpr const char* kFooter =
    "Exit status: 0 done, 1 usage, 2 the service or the library answered with a failure code,\n"
    "3 the connector could not be made, 4 a call ran out of time.";

void AddOnce(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
    }
}

}  // namespace

CommandTree::CommandTree(Globals& globals)
    : app("Steers the connector service and shows what it does.", "zamctl") {
    app.set_help_flag("-h,--help", "Print this help and end");
    app.set_version_flag("--version", std::string("zamctl ") + kVersion,
                         "Print the version and end");
    app.add_flag("--json", globals.format.json, "Print results as JSON, one document in a line");
    app.add_flag("--quiet", globals.format.quiet, "Print nothing that only confirms or details");
    app.add_flag("-v,--verbose", globals.verbose,
                 "Print the library's log records as they come, to standard error");
    app.add_option_function<std::string>(
           "--timeout",
           [&globals](const std::string& text) {
               globals.timeout = ParseSeconds("--timeout", text);
           },
           fmt::format("How long the command may take, 0 to {}; default {} for each call",
                       kLongestTimeout.count(), kCallTimeout.count()))
        ->type_name("SECONDS");
    app.footer(kFooter);
    app.require_subcommand(1, 1);
    CommandSet commands(app, declared);
    DeclareCommands(commands);
}

const CLI::Option* FindOption(const CLI::App& app, const std::string& argument) {
    // A command takes the options of those above it too.
    for (const CLI::App* level = &app; level != nullptr; level = level->get_parent()) {
        if (const CLI::Option* const option = level->get_option_no_throw(argument)) {
            return option;
        }
    }
    return nullptr;
}

bool TakesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

std::vector<std::string> CommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* const command :
         app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    return names;
}

std::vector<std::string> OptionNames(const CLI::App& app, bool withShort) {
    std::vector<std::string> names;
    for (const CLI::App* level = &app; level != nullptr; level = level->get_parent()) {
        for (const CLI::Option* const option : level->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                AddOnce(names, "--" + name);
            }
            for (const std::string& name : option->get_snames()) {
                if (withShort) {
                    AddOnce(names, "-" + name);
                }
            }
        }
    }
    return names;
}

}  // namespace zamctl
