#include "commands/data_command.h"

#include <fmt/format.h>

#include <vector>

#include "output_file.h"
#include "printable.h"
#include "tree_answers.h"
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
    DataCommand::OfferPaths offerPaths;
    std::vector<HashWord> hashes;
};

constexpr char kHash[] = "hash";
constexpr char kHashHelp[] = "Print the hash alone; 0 stands for no such data";

const std::vector<DataWord>& DataWords() {
    static const std::vector<DataWord> kWords = {
        {"policy",
         "Print the policy",
         &FetchPolicy,
         &OfferPolicyPaths,
         {{kHash, kHashHelp, "read the hash of the policy", &IZamDataProvider::GetPolicyHash}}},
        {"product-settings",
         "Print the settings that the server set for the product",
         &FetchProductSettings,
         &OfferProductSettingsPaths,
         {{kHash, kHashHelp, "read the hash of the product settings",
           &IZamDataProvider::GetSettingsHash},
          {"synced-hash", "Print the hash of the settings that the server has from the product",
           "read the hash of the synchronised settings",
           &IZamDataProvider::GetSyncedSettingsHash}}},
        {"subscriptions",
         "Print the events that the server wants to hear of",
         &FetchSubscriptions,
         nullptr,
         {{kHash, kHashHelp, "read the hash of the subscriptions",
           &IZamDataProvider::GetSubscriptionHash}}},
        {"server-data", "Print what the server tells about itself", &FetchServerData, nullptr, {}},
        {"reserve-cert",
         "Print the reserve certificate as PEM text",
         &FetchReserveCert,
         nullptr,
         {}},
        {"updates-status",
         "Print what the server decided about updates",
         &FetchUpdatesStatus,
         nullptr,
         {{kHash, kHashHelp, "read the hash of the updates status",
           &IZamDataProvider::GetZamUpdatesStatusHash}}},
    };
    return kWords;
}

}  // namespace

void DataCommand::Declare(Options& options) {
    options.File(
        "-o,--output", [this](const std::string& file) { output_ = file; },
        "Write to a file, whole or not at all");
    if (offerPaths_ != nullptr) {
        options
            .Value(
                "--path", "PATH",
                [this](const std::string& text) { path_ = ParseTreePath("--path", text); },
                "Only a part of the tree, as in limits/0/name")
            .Offers(offerPaths_);
        options.Flag("--tree", treeOnly_,
                     "Nothing but the tree, as typed JSON that can be edited and uploaded");
    }
}

const char* DataCommand::GivenOption() const {
    if (output_) {
        return "--output";
    }
    if (path_) {
        return "--path";
    }
    return treeOnly_ ? "--tree" : nullptr;
}

void DataCommand::Run(Context& context) {
    std::optional<OutputFile> file;
    if (output_ && *output_ != "-") {
        // Before the call: what could not be written need not be fetched.
        file.emplace(*output_);
    }
    const ConnectorInterfaces connector = context.Connector();
    const std::string content = fetch_(context, connector.dataProvider,
                                       {.json = context.output.IsJson(),
                                        .treeOnly = treeOnly_,
                                        .path = path_.value_or(zuv::Root),
                                        .toFile = file.has_value()});
    if (!file) {
        context.output.Content(content);
        return;
    }
    file->Commit(content);
    // With JSON the one document stands in the file.
    if (!context.output.IsJson()) {
        context.output.Confirmation(
            fmt::format("{} bytes written to {}", content.size(), Quote(*output_)), {});
    }
}

void HashCommand::Run(Context& context) {
    if (const char* const option = data_->GivenOption()) {
        throw UsageError(fmt::format("{} does not go together with a hash", option));
    }
    const ConnectorInterfaces connector = context.Connector();
    unsigned long hash = 0;
    const int code = context.Checked(action_, [&] { return (connector.dataProvider.*ask_)(hash); });
    context.output.Result(HashText(hash), {{"hash", HashText(hash)}, {"result", code}});
}

void DeclareData(CommandSet& commands) {
    for (const DataWord& data : DataWords()) {
        const auto get = std::make_shared<DataCommand>(data.fetch, data.offerPaths);
        CommandSet words = commands.Group(data.word, data.description, get);
        // The same object: its options may stand before the word as well as behind it.
        words.Add("get", "The same as without a word", get);
        for (const HashWord& hash : data.hashes) {
            words.Add(hash.word, hash.description,
                      std::make_shared<HashCommand>(hash.action, hash.ask, get));
        }
    }
}

}  // namespace zamctl
