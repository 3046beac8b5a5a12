#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/raw_zam_param.h"
#include "data/content_hash.h"
#include "qx/zam_data_provider.h"
#include "zuv/value.h"

namespace zam_service {

/// Largest answer to a request for a piece, in bytes.
inline constexpr std::uint32_t kPieceBytes =
    qx_zam_connector_ZamDataProvider_GetData_response_arena;

/// Largest value and path text of one record, together: such a record still goes through an arena
/// of `kPieceBytes` in either direction.
inline constexpr std::size_t kMaxRecordBytes = kPieceBytes - 1;

/// A tree as clients fetch it. Immutable: a transfer holds on to the one that it began with.
struct TreeSnapshot {
    /// The pieces as they go into an arena: at least one, each of at most `kPieceBytes`.
    std::vector<std::vector<unsigned char>> pieces;
    std::uint64_t hash = kAbsentHash;
};

using TreeSnapshotPtr = std::shared_ptr<const TreeSnapshot>;

/// Cuts a flattened tree, none of whose records weighs more than `kMaxRecordBytes`, into as few
/// pieces as fit: every piece costs the client a round trip. Throws for want of memory.
std::vector<std::vector<unsigned char>> CutIntoPieces(
    const std::vector<zam_connector::common::RawZamParam>& records);

/// What is served while there is no tree: one record, a root of the kind none, and
/// `kAbsentHash`. Throws for want of memory.
TreeSnapshotPtr AbsentTree();

}  // namespace zam_service
