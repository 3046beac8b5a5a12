#pragma once

#include "record_json/tree_records.h"
#include "zuv/value.h"

/// Trees of records as people write them, checked node by node: the library's own readers tell that
/// something is wrong, but not where.

namespace zamctl {

/// Checks that a tree is a vector of licence agreements. Throws `zam_json::JsonError` with the
/// place of the first node that is missing, unknown or of the wrong kind.
void CheckEulas(const zam_json::TreeText& source, const zuv::TValue& tree);

/// The same for a map of updates and their states.
void CheckUpdates(const zam_json::TreeText& source, const zuv::TValue& tree);

}  // namespace zamctl
