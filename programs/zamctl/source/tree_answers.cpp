#include <fmt/format.h>

#include <string_view>
#include <utility>
#include <variant>

#include "data_answers.h"
#include "json_text/json_token.h"
#include "printable.h"
#include "tree_json/tree_json.h"
#include "tree_listing.h"
#include "tree_path.h"

namespace zamctl {
namespace {

constexpr unsigned kIndent = 2;

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
            throw Failure(kExitFailed,
                          fmt::format("there is nothing at {} in the tree; it goes as far as {}",
                                      Quote(TreePathText(path)), Quote(TreePathText(reached))),
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
            form.path.empty() ? ""
                              : PrintableJson(fmt::format(
                                    R"("path":{},)", zam_json::Quoted(TreePathText(form.path))));
        return fmt::format(R"({{"hash":"{}",{}"tree":{},"result":{}}})", HashText(data.first), path,
                           TypedJson(node, 0), code) +
               "\n";
    }
    return fmt::format("hash {}\n{}\n", HashText(data.first), ListTree(node));
}

}  // namespace

std::string FetchPolicy(Context& context, zam_connector::IZamDataProvider& provider,
                        const DataForm& form) {
    return FetchTree<zam_connector::ZamPolicy>(
        context, form, "read the policy", [&](auto& data) { return provider.GetPolicy(data); });
}

std::string FetchProductSettings(Context& context, zam_connector::IZamDataProvider& provider,
                                 const DataForm& form) {
    return FetchTree<zam_connector::ZamProductSettings>(
        context, form, "read the product settings",
        [&](auto& data) { return provider.GetProductSettings(data); });
}

}  // namespace zamctl
