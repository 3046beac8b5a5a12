#include "tree_answers.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>
#include <variant>

#include "printable.h"
#include "record_json/path_text.h"
#include "tree_json/tree_json.h"
#include "tree_listing.h"
#include "tree_path.h"

namespace zamctl {
namespace {

constexpr unsigned kIndent = 2;
constexpr char kReadPolicy[] = "read the policy";
constexpr char kReadSettings[] = "read the product settings";

const zuv::TValue* Child(const zuv::TValue& node, const zuv::Level& level) {
    if (const auto* const key = std::get_if<std::string>(&level)) {
        return node.Find(*key);
    }
    const auto* const elements = node.GetIf<zuv::Vector>();
    const unsigned long position = std::get<unsigned long>(level);
    return elements != nullptr && position < elements->size() ? &(*elements)[position] : nullptr;
}

const zuv::TValue& NodeAt(const zuv::TValue& tree, const zuv::Path& path) {
    const zuv::TValue* node = &tree;
    zuv::Path reached;
    for (const zuv::Level& level : path) {
        node = Child(*node, level);
        if (node == nullptr) {
            throw Failure(
                kExitFailed,
                fmt::format("there is nothing at {} in the tree; it goes as far as {}",
                            Quote(zam_json::PathText(path)), Quote(zam_json::PathText(reached))),
                "Without --path the whole tree is printed.");
        }
        reached.push_back(level);
    }
    return *node;
}

std::string TypedJson(const zuv::TValue& tree, unsigned indent) {
    try {
        return PrintableJson(zam_connector::tree_json::Write(tree, {.indent = indent}));
    } catch (const zam_connector::tree_json::JsonError& error) {
        throw Failure(kExitFailed,
                      fmt::format("the tree cannot be written as JSON: {}", error.what()),
                      "Ask for a part of it with --path, or for the listing, without --json.");
    }
}

/// `action` completes "cannot ...", `fetch` fills a record and its hash and returns the code.
template <typename Record, typename Fetch>
std::string FetchTree(Context& context, const DataForm& form, const char* action, Fetch&& fetch) {
    std::pair<unsigned long, Record> data;
    const int code = context.Checked(action, [&] { return fetch(data); });
    const zuv::TValue& node = NodeAt(data.second.tree, form.path);
    if (form.treeOnly) {
        return TypedJson(node, form.json ? 0 : kIndent) + "\n";
    }
    if (form.json) {
        const std::string path =
            form.path.empty()
                ? ""
                : fmt::format(R"("path":{},)", JsonText(zam_json::PathText(form.path)));
        // Joined as text: parsing a large tree's JSON to write it once more would be waste.
        return fmt::format(R"({{"hash":"{}",{}"tree":{},"result":{}}})", HashText(data.first), path,
                           TypedJson(node, 0), code) +
               "\n";
    }
    return fmt::format("hash {}\n{}\n", HashText(data.first), ListTree(node));
}

/// What can follow `begun` on the way down a tree.
Offer OfferPaths(const zuv::TValue& tree, const std::string& begun) {
    const std::string above = begun.substr(0, begun.rfind('/') + 1);
    const zuv::TValue& node = NodeAt(tree, ParseTreePath("--path", above));
    Offer offer{.kind = Offer::Kind::Parts};
    const auto add = [&](const zuv::Level& level, const zuv::TValue& child) {
        std::string word = zam_json::PathText({level});
        // A key that no path can hold has no text.
        if (!word.empty()) {
            word.resize(word.size() - (child.HasChildren() ? 0 : 1));
            offer.words.push_back(above + word);
        }
    };
    if (const auto* const map = node.GetIf<zuv::Map>()) {
        for (const auto& [key, child] : *map) {
            add(key, child);
        }
    } else if (const auto* const elements = node.GetIf<zuv::Vector>()) {
        for (std::size_t position = 0; position < elements->size(); ++position) {
            add(position, (*elements)[position]);
        }
    }
    return offer;
}

}  // namespace

std::string FetchPolicy(Context& context, zam_connector::IZamDataProvider& provider,
                        const DataForm& form) {
    return FetchTree<zam_connector::ZamPolicy>(
        context, form, kReadPolicy, [&](auto& data) { return provider.GetPolicy(data); });
}

std::string FetchProductSettings(Context& context, zam_connector::IZamDataProvider& provider,
                                 const DataForm& form) {
    return FetchTree<zam_connector::ZamProductSettings>(
        context, form, kReadSettings,
        [&](auto& data) { return provider.GetProductSettings(data); });
}

Offer OfferPolicyPaths(Context& context, const std::string& begun) {
    const ConnectorInterfaces connector = context.Connector();
    std::pair<unsigned long, zam_connector::ZamPolicy> data;
    context.Checked(kReadPolicy, [&] { return connector.dataProvider.GetPolicy(data); });
    return OfferPaths(data.second.tree, begun);
}

Offer OfferProductSettingsPaths(Context& context, const std::string& begun) {
    const ConnectorInterfaces connector = context.Connector();
    std::pair<unsigned long, zam_connector::ZamProductSettings> data;
    context.Checked(kReadSettings, [&] { return connector.dataProvider.GetProductSettings(data); });
    return OfferPaths(data.second.tree, begun);
}

}  // namespace zamctl
