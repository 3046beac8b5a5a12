#include "command_options.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <optional>

#include "commands/doctor_command.h"
#include "commands/event_command.h"
#include "commands/explain_command.h"
#include "commands/sync_command.h"
#include "nearest.h"
#include "option_helpers.h"
#include "values.h"
#include "vocabulary/state_names.h"

namespace zamctl {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t kMostMilliseconds = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMostPort = std::numeric_limits<std::uint16_t>::max();

struct Range {
    std::uint64_t least;
    std::uint64_t most;
};

/// An option that takes a whole number and hands it to `store`.
template <typename Store>
CLI::Option* AddNumber(CLI::App& command, const std::string& name, Range range, Store store,
                       const std::string& description) {
    const auto parse = [name, range, store](const std::string& text) {
        store(ParseInRange(name, text, range.least, range.most));
    };
    return command
        .add_option_function<std::string>(
            name, parse, fmt::format("{}, {} to {}", description, range.least, range.most))
        ->type_name("N");
}

CLI::Option* AddMilliseconds(CLI::App& command, const std::string& name, milliseconds& target,
                             const std::string& description) {
    return AddNumber(
               command, name, {0, kMostMilliseconds},
               [&target](std::uint64_t value) { target = milliseconds(value); }, description)
        ->type_name("MS");
}

CLI::Option* AddWaitTimeout(CLI::App& command, milliseconds& target) {
    return AddTimeout(command, target,
                      fmt::format("How long to wait, 0 to {}; default {}", kLongestTimeout.count(),
                                  kDefaultTimeout.count() / 1000));
}

void DeclareState(CLI::App& app, CommandOptions& all) {
    CLI::App& command = AddCommand(app, "state", "Print the state of the connection");
    StateCommand::Options& options = all.state;
    const auto parse = [&options](const std::string& text) {
        options.waitFor = zam_vocabulary::StateOfName(text);
        if (!options.waitFor) {
            throw UsageError(
                fmt::format("--wait: '{}' is no state{}", text,
                            SuggestName(text, zam_vocabulary::StateNames(), "states")));
        }
    };
    CLI::Option* const wait = command
                                  .add_option_function<std::string>(
                                      "--wait", parse,
                                      fmt::format("Wait until the state is one of: {}",
                                                  fmt::join(zam_vocabulary::StateNames(), ", ")))
                                  ->type_name("STATE");
    AddWaitTimeout(command, options.timeout)->needs(wait);
    command.add_flag("--watch", all.watchState, "Print each change as it comes, until interrupted")
        ->excludes(wait);
    DeclareNoticeCount(command, all.stateWatch, "--watch");
}

void DeclareStart(CLI::App& app, StartCommand::Options& options) {
    CLI::App& command = AddCommand(app, "start", "Start the connection to the server");
    zam_connector::ZamConnectionParameters& parameters = options.parameters;
    const auto address = [&parameters](const std::string& text) {
        if (text.empty()) {
            throw UsageError("--server: the value is empty; a host name or an address is needed");
        }
        parameters.serverAddress = text;
    };
    command.add_option_function<std::string>("--server", address, "Host name or address")
        ->type_name("HOST")
        ->required();
    const auto port = [&parameters](std::uint64_t value) {
        parameters.serverPort = static_cast<std::uint16_t>(value);
    };
    AddNumber(command, "--port", {1, kMostPort}, port, "Port of the server")->required();
    command.add_option("--product", parameters.productName, "What the device is registered as")
        ->type_name("NAME");
    command
        .add_option("--device", parameters.deviceName, "Name that the server shows for the device")
        ->type_name("NAME");
    const auto proxy = [&parameters](const std::string& text) {
        CheckProxyUrl("--proxy", text);
        parameters.proxyUrl = text;
    };
    command
        .add_option_function<std::string>("--proxy", proxy,
                                          "Proxy on the way, http://[user:password@]host:port")
        ->type_name("URL");
    AddMilliseconds(command, "--connect-timeout", parameters.connectTimeout,
                    "For one attempt to connect, 0 leaves it to the service");
    AddMilliseconds(command, "--request-timeout", parameters.requestTimeout,
                    "For one request, 0 leaves it to the service");
    AddMilliseconds(command, "--keep-alive", parameters.keepAlivePeriod,
                    "Between signs of life, 0 leaves it to the service");
    CLI::Option* const wait = command.add_flag("--wait", options.wait, "Wait until connected");
    AddWaitTimeout(command, options.timeout)->needs(wait);
}

void DeclareStop(CLI::App& app, StopCommand::Options& options) {
    CLI::App& command = AddCommand(app, "stop", "Stop the connection to the server");
    CLI::Option* const wait = command.add_flag("--wait", options.wait, "Wait until stopped");
    AddWaitTimeout(command, options.timeout)->needs(wait);
}

void DeclareSettings(CLI::App& app, SettingsSetCommand::Options& options) {
    CLI::App& command = AddCommand(app, "settings", "Print or change the connector's settings");
    command.require_subcommand(1, 1);
    AddCommand(command, "get", "Print all settings with their units");
    CLI::App& set = AddCommand(command, "set", "Change settings and print what has changed");
    set.add_option("CHANGE", options.assignments, "Names as 'settings get' prints them")
        ->type_name("NAME=VALUE");
    AddFile(set, "--from", options.file,
            "Take what 'settings get --json' printed from a file, - for standard input");
}

void DeclarePing(CLI::App& app, PingCommand::Options& options) {
    CLI::App& command = AddCommand(app, "ping", "Time round trips to the service");
    AddNumber(
        command, "--count", {1, kMaxPingCount},
        [&options](std::uint64_t value) { options.count = value; },
        fmt::format("Calls to make, default {}", options.count));
    const auto most = static_cast<std::uint64_t>(kMaxPingInterval.count());
    AddNumber(
        command, "--interval", {0, most},
        [&options](std::uint64_t value) { options.interval = milliseconds(value); },
        fmt::format("Pause between calls, default {}", options.interval.count()))
        ->type_name("MS");
}

}  // namespace

void DeclareCommands(CLI::App& app, CommandOptions& options) {
    DeclareState(app, options);
    DeclareStart(app, options.start);
    DeclareStop(app, options.stop);
    DeclareSettings(app, options.settingsSet);
    AddCommand(app, "sync", "Schedule a synchronisation with the server");
    AddCommand(app, "event", "Post an event to the server")
        .add_option("TEXT", options.event,
                    fmt::format("At most {} bytes; - reads standard input", kMaxEventBytes))
        ->required();
    DeclareDataCommands(app, options.data);
    DeclareLiveCommands(app, options.live);
    CLI::App& explain = AddCommand(app, "explain", "Print what result codes mean");
    explain.add_option("CODE", options.codes, "0x... or decimal, signed or not")->type_name("CODE");
    explain.add_flag("-l,--list", options.allCodes, "Print every code that has a text");
    DeclarePing(app, options.ping);
    AddCommand(app, "doctor", "Check what is installed and can be reached");
}

std::unique_ptr<Command> MakeCommand(const CLI::App& app, const CommandOptions& options) {
    if (app.got_subcommand("state")) {
        if (options.watchState) {
            return std::make_unique<WatchCommand>(options.stateWatch);
        }
        return std::make_unique<StateCommand>(options.state);
    }
    if (app.got_subcommand("start")) {
        return std::make_unique<StartCommand>(options.start);
    }
    if (app.got_subcommand("stop")) {
        return std::make_unique<StopCommand>(options.stop);
    }
    if (app.got_subcommand("settings")) {
        if (app.get_subcommand("settings")->got_subcommand("get")) {
            return std::make_unique<SettingsGetCommand>();
        }
        return std::make_unique<SettingsSetCommand>(options.settingsSet);
    }
    if (app.got_subcommand("sync")) {
        return std::make_unique<SyncCommand>();
    }
    if (app.got_subcommand("event")) {
        return std::make_unique<EventCommand>(options.event);
    }
    if (app.got_subcommand("explain")) {
        if (options.allCodes == !options.codes.empty()) {
            throw UsageError("give either result codes or --list");
        }
        return std::make_unique<ExplainCommand>(options.allCodes ? ExplainCommand::All()
                                                                 : ExplainCommand(options.codes));
    }
    if (app.got_subcommand("ping")) {
        return std::make_unique<PingCommand>(options.ping);
    }
    if (std::unique_ptr<Command> command = MakeDataCommand(app, options.data)) {
        return command;
    }
    if (std::unique_ptr<Command> command = MakeLiveCommand(app, options.live)) {
        return command;
    }
    return std::make_unique<DoctorCommand>();
}

}  // namespace zamctl
