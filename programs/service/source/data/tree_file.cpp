#include "data/tree_file.h"

#include <optional>
#include <utility>
#include <vector>

#include "record_json/tree_records.h"
#include "tree_json/tree_json.h"

namespace zam_service {

static_assert(kMaxRecordBytes == zam_json::kMaxRecordBytes);

TreeSnapshotPtr ReadTree(const std::string& name, std::string_view text, const TreeBounds& bounds) {
    CheckTextBounds(name, text, bounds);
    TreeSnapshot snapshot;
    std::vector<zam_connector::common::RawZamParam> records;
    {
        const zuv::TValue tree = zam_connector::tree_json::Read(text, name);
        CheckTreeBounds(name, tree, bounds);
        records = zam_json::FlattenToSend({name, text}, tree);
        snapshot.hash = HashOf(tree);
    }
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
