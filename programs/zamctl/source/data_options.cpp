#include "data_options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <span>

#include "commands/upload_command.h"
#include "option_helpers.h"
#include "tree_path.h"

namespace zamctl {
namespace {

using zam_connector::IZamDataProvider;

/// A hash that can be asked for.
struct HashWord {
    const char* word;
    const char* description;
    const char* action;
    HashCommand::Ask ask;
};

/// Data that can be fetched.
struct DataWord {
    const char* word;
    const char* description;
    DataFetch fetch;
    bool isTree;
    std::vector<HashWord> hashes;
};

constexpr char kHash[] = "hash";
constexpr char kHashHelp[] = "Print the hash alone; 0 stands for no such data";

const std::vector<DataWord>& DataWords() {
    static const std::vector<DataWord> kWords = {
        {"policy",
         "Print the policy",
         &FetchPolicy,
         true,
         {{kHash, kHashHelp, "read the hash of the policy", &IZamDataProvider::GetPolicyHash}}},
        {"product-settings",
         "Print the settings that the server set for the product",
         &FetchProductSettings,
         true,
         {{kHash, kHashHelp, "read the hash of the product settings",
           &IZamDataProvider::GetSettingsHash},
          {"synced-hash", "Print the hash of the settings that the server has from the product",
           "read the hash of the synchronised settings",
           &IZamDataProvider::GetSyncedSettingsHash}}},
        {"subscriptions",
         "Print the events that the server wants to hear of",
         &FetchSubscriptions,
         false,
         {{kHash, kHashHelp, "read the hash of the subscriptions",
           &IZamDataProvider::GetSubscriptionHash}}},
        {"server-data", "Print what the server tells about itself", &FetchServerData, false, {}},
        {"reserve-cert", "Print the reserve certificate as PEM text", &FetchReserveCert, false, {}},
        {"updates-status",
         "Print what the server decided about updates",
         &FetchUpdatesStatus,
         false,
         {{kHash, kHashHelp, "read the hash of the updates status",
           &IZamDataProvider::GetZamUpdatesStatusHash}}},
    };
    return kWords;
}

void DeclareGetOptions(CLI::App& command, bool isTree, DataCommand::Options& options) {
    AddFile(command, "-o,--output", options.output, "Write to a file, whole or not at all");
    if (isTree) {
        const auto path = [&options](const std::string& text) {
            options.path = ParseTreePath("--path", text);
        };
        command
            .add_option_function<std::string>("--path", path,
                                              "Only a part of the tree, as in limits/0/name")
            ->type_name("PATH");
        command.add_flag("--tree", options.treeOnly,
                         "Nothing but the tree, as typed JSON that can be edited and uploaded");
    }
}

void DeclareData(CLI::App& app, const DataWord& data, DataOptions& options) {
    CLI::App& command = AddCommand(app, data.word, data.description);
    command.require_subcommand(0, 1);
    DeclareGetOptions(command, data.isTree, options.get);
    CLI::App& get = AddCommand(command, "get", "The same as without a word");
    DeclareGetOptions(get, data.isTree, options.get);
    for (const HashWord& hash : data.hashes) {
        AddCommand(command, hash.word, hash.description);
    }
}

void DeclareUpload(CLI::App& app, DataOptions& options) {
    CLI::App& command = AddCommand(app, "upload", "Tell the service about the product");
    command.require_subcommand(1, 1);
    for (const UploadKind& kind : UploadKinds()) {
        AddCommand(command, kind.name, kind.description)
            .add_option("FILE", options.uploadFile,
                        "In the form of the service's own uploads; - reads standard input")
            ->required();
    }
}

/// Options that ask for a form of the data mean nothing for its hash.
void RefuseGetOptions(const CLI::App& command) {
    for (const CLI::Option* const option : command.get_options()) {
        if (option->count() > 0) {
            throw UsageError(
                fmt::format("{} does not go together with a hash", option->get_name()));
        }
    }
}

std::unique_ptr<Command> MakeData(const CLI::App& command, const DataWord& data,
                                  const DataOptions& options) {
    for (const HashWord& hash : data.hashes) {
        if (command.got_subcommand(hash.word)) {
            RefuseGetOptions(command);
            return std::make_unique<HashCommand>(hash.action, hash.ask);
        }
    }
    return std::make_unique<DataCommand>(data.fetch, options.get);
}

}  // namespace

void DeclareDataCommands(CLI::App& app, DataOptions& options) {
    for (const DataWord& data : DataWords()) {
        DeclareData(app, data, options);
    }
    DeclareUpload(app, options);
}

std::unique_ptr<Command> MakeDataCommand(const CLI::App& app, const DataOptions& options) {
    for (const DataWord& data : DataWords()) {
        if (app.got_subcommand(data.word)) {
            return MakeData(*app.get_subcommand(data.word), data, options);
        }
    }
    if (app.got_subcommand("upload")) {
        for (const UploadKind& kind : UploadKinds()) {
            if (app.get_subcommand("upload")->got_subcommand(kind.name)) {
                return std::make_unique<UploadCommand>(kind, options.uploadFile);
            }
        }
    }
    return nullptr;
}

}  // namespace zamctl
