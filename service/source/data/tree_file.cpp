#include "data/tree_file.h"

#include <fmt/format.h>

#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "common/id_specification.h"
#include "data/tree_place.h"
#include "tree_json/tree_json.h"
#include "zuv/for_each.h"
#include "zuv/path.h"

namespace zam_service {
namespace {

using zam_connector::common::RawZamParam;
using zam_connector::common::meta::IdSpecification;

[[noreturn]] void FailAt(const std::string& name, std::string_view text, const zuv::Path& path,
                         zam_json::JsonPart part, const std::string& message) {
    const std::string pointer = PointerOf(text, path);
    const std::string_view bare = zam_json::WithoutByteOrderMark(text);
    auto offset = zam_json::FindInJson(bare, pointer, part);
    if (!offset) {
        // The key of a pair is no member's key.
        offset = zam_json::FindInJson(bare, pointer, zam_json::JsonPart::Value);
    }
    throw JsonError(name, zam_json::PositionAt(bare, offset.value_or(0)), pointer, message);
}

/// The first node whose key no path can hold; empty when the tree has none.
std::optional<zuv::Path> FindUnnameable(const zuv::TValue& tree) {
    std::optional<zuv::Path> found;
    zuv::Path path;
    zuv::ForEach(
        tree,
        [&found](const zuv::Path& at, const zuv::TValue& /*node*/) {
            if (!at.empty() &&
                zuv::ToString(zuv::Path{at.back()}, IdSpecification()).second != zuv::IdState::Ok) {
                found = at;
                return zuv::for_each::Option::Stop;
            }
            return zuv::for_each::Option::Continue;
        },
        path);
    return found;
}

std::vector<RawZamParam> Flatten(const std::string& name, std::string_view text,
                                 const zuv::TValue& tree) {
    std::vector<RawZamParam> records;
    const auto [code, message] = zam_connector::common::Serialize(zuv::Root, tree, records);
    if (code == 0) {
        return records;
    }
    if (const std::optional<zuv::Path> path = FindUnnameable(tree)) {
        FailAt(name, text, *path, zam_json::JsonPart::Key,
               "the key cannot be sent: a key is not empty, does not begin with a digit and holds "
               "none of / \\ \" ' ` %");
    }
    throw JsonError(name, {}, "", message);
}

void CheckWeights(const std::string& name, std::string_view text,
                  const std::vector<RawZamParam>& records) {
    for (const RawZamParam& record : records) {
        if (zam_connector::common::WeightOf(record) > kMaxRecordBytes) {
            FailAt(name, text, zuv::FromString(record.path, IdSpecification()).first,
                   zam_json::JsonPart::Value,
                   fmt::format("has {} bytes of value and {} of path, {}; at most {} can be sent "
                               "together",
                               record.value.size(), record.path.size(),
                               zam_json::Quoted(record.path), kMaxRecordBytes));
        }
    }
}

}  // namespace

TreeSnapshotPtr ReadTree(const std::string& name, std::string_view text) {
    TreeSnapshot snapshot;
    std::vector<RawZamParam> records;
    {
        const zuv::TValue tree = zam_connector::tree_json::Read(text, name);
        records = Flatten(name, text, tree);
        snapshot.hash = HashOf(tree);
    }
    CheckWeights(name, text, records);
    snapshot.pieces = CutIntoPieces(records);
    return std::make_shared<const TreeSnapshot>(std::move(snapshot));
}

ServedFile ServeTree(const std::string& name, std::function<void(TreeSnapshotPtr)> publish) {
    return {.name = name,
            .lane = kTreeLane,
            .read = [name, publish = std::move(publish)](
                        std::optional<std::string> text) -> std::function<void()> {
                TreeSnapshotPtr tree = text ? ReadTree(name, *text) : AbsentTree();
                return [publish, tree = std::move(tree)] { publish(tree); };
            },
            .maxBytes = kMaxTreeFileBytes};
}

}  // namespace zam_service
