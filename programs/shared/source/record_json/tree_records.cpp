#include "record_json/tree_records.h"

#include <fmt/format.h>

#include <optional>

#include "common/id_specification.h"
#include "record_json/tree_place.h"
#include "zuv/for_each.h"

namespace zam_json {
namespace {

using zam_connector::common::RawZamParam;
using zam_connector::common::meta::IdSpecification;

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

void CheckWeights(const TreeText& source, const std::vector<RawZamParam>& records) {
    for (const RawZamParam& record : records) {
        if (zam_connector::common::WeightOf(record) > kMaxRecordBytes) {
            FailAtNode(source, zuv::FromString(record.path, IdSpecification()).first,
                       JsonPart::Value,
                       fmt::format("has {} bytes of value and {} of path, {}; at most {} can be "
                                   "sent together",
                                   record.value.size(), record.path.size(), Quoted(record.path),
                                   kMaxRecordBytes));
        }
    }
}

}  // namespace

void FailAtNode(const TreeText& source, const zuv::Path& path, JsonPart part,
                std::string_view message) {
    const std::string pointer = PointerOf(source.text, path);
    const std::string_view bare = WithoutByteOrderMark(source.text);
    auto offset = FindInJson(bare, pointer, part);
    if (!offset) {
        // The key of a pair is no member's key.
        offset = FindInJson(bare, pointer, JsonPart::Value);
    }
    throw JsonError(source.name, PositionAt(bare, offset.value_or(0)), pointer, message);
}

std::vector<RawZamParam> FlattenToSend(const TreeText& source, const zuv::TValue& tree) {
    std::vector<RawZamParam> records;
    const auto [code, message] = zam_connector::common::Serialize(zuv::Root, tree, records);
    if (code == 0) {
        CheckWeights(source, records);
        return records;
    }
    if (const std::optional<zuv::Path> path = FindUnnameable(tree)) {
        FailAtNode(source, *path, JsonPart::Key,
                   "the key cannot be sent: a key is not empty, does not begin with a digit and "
                   "holds none of / \\ \" ' ` %");
    }
    throw JsonError(source.name, {}, "", message);
}

}  // namespace zam_json
