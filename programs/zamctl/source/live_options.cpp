#include "live_options.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "commands/locales_command.h"
#include "failure.h"
#include "nearest.h"
#include "option_helpers.h"
#include "times.h"
#include "values.h"

namespace zamctl {
namespace {

std::vector<std::string> KindNames() {
    std::vector<std::string> names;
    for (const NoticeKind kind : NoticeKinds()) {
        names.push_back(NoticeKindName(kind));
    }
    return names;
}

void AddKind(std::vector<NoticeKind>& kinds, const std::string& name) {
    const std::optional<NoticeKind> kind = ParseNoticeKind(name);
    if (!kind) {
        throw UsageError(fmt::format("KIND: '{}' cannot be watched{}", name,
                                     SuggestName(name, KindNames(), "kinds")));
    }
    if (std::find(kinds.begin(), kinds.end(), *kind) == kinds.end()) {
        kinds.push_back(*kind);
    }
}

void DeclareWatch(CLI::App& app, WatchCommand::Options& options) {
    CLI::App& command = AddCommand(app, "watch", "Print changes as they come, until interrupted");
    const auto kinds = [&options](const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            AddKind(options.kinds, name);
        }
    };
    command
        .add_option_function<std::vector<std::string>>(
            "KIND", kinds, fmt::format("All, or some of: {}", fmt::join(KindNames(), ", ")))
        ->type_name("KIND");
    DeclareNoticeCount(command, options);
}

void DeclareFile(CLI::App& app, FileGetCommand::Options& options) {
    CLI::App& command = AddCommand(app, "file", "Describe or fetch a file of the server");
    command.require_subcommand(1, 1);
    constexpr char kNameHelp[] = "Path of the file at the server, with / between the levels";
    AddCommand(command, "info", "Print a file's size, SHA-256 and modification time")
        .add_option("NAME", options.path, kNameHelp)
        ->required();
    CLI::App& get = AddCommand(command, "get", "Fetch a file whole, or the rest of it");
    get.add_option("NAME", options.path, kNameHelp)->required();
    AddFile(get, "-o,--output", options.output, "File to write, default the last part of NAME");
    AddTimeout(get, options.timeout,
               fmt::format("How long the whole may take, 0 to {}; default: while something comes",
                           kLongestTimeout.count()));
}

void DeclareCerts(CLI::App& app, CertsCommand::Options& options) {
    CLI::App& command = AddCommand(app, "certs", "Print the client certificates for this device");
    command.add_option("--subject", options.params.subject, "Only with this distinguished name")
        ->type_name("DN");
    command.add_option("--issuer", options.params.issuer, "Only by this distinguished name")
        ->type_name("DN");
    const auto validAt = [&options](const std::string& text) {
        options.params.validAt = qor::types::Timestamp(ParseUtcSeconds("--valid-at", text));
    };
    command
        .add_option_function<std::string>("--valid-at", validAt,
                                          "Only valid then: 2026-01-31T12:00:00Z, 2026-01-31 or "
                                          "seconds since 1970")
        ->type_name("TIME");
    command.add_flag("--with-keys", options.withKeys, "Private keys too");
    AddFile(command, "-o,--output", options.output,
            "Write PEM texts to a file that only its owner may read; - is standard output");
}

}  // namespace

void DeclareNoticeCount(CLI::App& command, WatchCommand::Options& options,
                        const std::string& needs) {
    CLI::Option* const count = command.add_option_function<std::string>(
        "--count",
        [&options](const std::string& text) {
            options.count = ParseInRange("--count", text, 1, kMaxNoticeCount);
        },
        fmt::format("End behind so many changes, 1 to {}", kMaxNoticeCount));
    count->type_name("N");
    if (!needs.empty()) {
        count->needs(command.get_option(needs));
    }
}

void DeclareLiveCommands(CLI::App& app, LiveOptions& options) {
    DeclareWatch(app, options.watch);
    DeclareFile(app, options.file);
    DeclareCerts(app, options.certs);
    AddCommand(app, "locales", "Print the locales that the server knows");
}

std::unique_ptr<Command> MakeLiveCommand(const CLI::App& app, const LiveOptions& options) {
    if (app.got_subcommand("watch")) {
        return std::make_unique<WatchCommand>(options.watch);
    }
    if (app.got_subcommand("file")) {
        if (app.get_subcommand("file")->got_subcommand("info")) {
            return std::make_unique<FileInfoCommand>(options.file.path);
        }
        return std::make_unique<FileGetCommand>(options.file);
    }
    if (app.got_subcommand("certs")) {
        return std::make_unique<CertsCommand>(options.certs);
    }
    if (app.got_subcommand("locales")) {
        return std::make_unique<LocalesCommand>();
    }
    return nullptr;
}

}  // namespace zamctl
