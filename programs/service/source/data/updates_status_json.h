#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "data/content_hash.h"
#include "json_text/json_document.h"
#include "zam_connector/zam_id.h"

namespace zam_service {

inline constexpr char kUpdatesStatusFile[] = "updates_status.json";

/// The lists of the updates status: approved, declined, revoked, in the order of their numbers on
/// the wire.
inline constexpr std::size_t kUpdateKinds = 3;

/// Most identifiers in one list.
inline constexpr std::size_t kMaxUpdateIds = 1'000'000;

/// The updates status as clients fetch it; without a file, three empty lists. Immutable once it is
/// served: a transfer holds on to the one that it began with.
struct UpdatesSnapshot {
    std::array<std::vector<zam_connector::ZamId>, kUpdateKinds> lists;
    std::uint64_t hash = kAbsentHash;
};

using UpdatesSnapshotPtr = std::shared_ptr<const UpdatesSnapshot>;

/// Reads the updates status; a list that is missing is empty. Throws `zam_json::JsonError`.
UpdatesSnapshot ReadUpdatesStatus(const zam_json::JsonValue& root);

}  // namespace zam_service
