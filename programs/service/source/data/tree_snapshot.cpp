#include "data/tree_snapshot.h"

#include <new>
#include <span>

#include "common/arena.h"
#include "common/raw_zam_param_casts.h"
#include "zuv/path.h"

namespace zam_service {

using zam_connector::common::HeapArena;
using zam_connector::common::RawZamParam;

std::vector<std::vector<unsigned char>> CutIntoPieces(const std::vector<RawZamParam>& records) {
    std::vector<std::vector<unsigned char>> pieces;
    HeapArena arena(kPieceBytes);
    const std::span<const RawZamParam> all(records);
    for (std::size_t first = 0; first < all.size();) {
        // On the wire a record of a flattened tree is shorter than its weight.
        std::size_t weight = 0;
        std::size_t next = first;
        while (next < all.size() &&
               (next == first ||
                weight + zam_connector::common::WeightOf(all[next]) <= kMaxRecordBytes)) {
            weight += zam_connector::common::WeightOf(all[next++]);
        }
        vd_arena* const bytes = arena.Get();
        zam_connector::common::CastToVd(all.subspan(first, next - first), bytes);
        pieces.emplace_back(bytes->base, bytes->base + bytes->used);
        vd_arena_reset(bytes);
        first = next;
    }
    return pieces;
}

TreeSnapshotPtr AbsentTree() {
    std::vector<RawZamParam> records;
    const auto [code, message] =
        zam_connector::common::Serialize(zuv::Root, zuv::TValue(), records);
    if (code != 0) {
        throw std::bad_alloc();  // nothing else can be wrong with it
    }
    return std::make_shared<const TreeSnapshot>(
        TreeSnapshot{.pieces = CutIntoPieces(records), .hash = kAbsentHash});
}

}  // namespace zam_service
