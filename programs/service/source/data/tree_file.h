#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "data/data_folder.h"
#include "data/tree_bounds.h"
#include "data/tree_snapshot.h"

namespace zam_service {

/// Largest file with a tree, in bytes.
inline constexpr std::size_t kMaxTreeFileBytes = std::size_t{256} << 20U;

/// The tree of a typed JSON text from the file `name`, ready to be fetched. Throws
/// `zam_json::JsonError` and `tree_json::JsonError`, also for keys that no path can hold and for
/// values too large to be sent, and `zam_platform::PlatformError` for a tree beyond its bounds.
TreeSnapshotPtr ReadTree(const std::string& name, std::string_view text,
                         const TreeBounds& bounds = {});

/// A file with a tree; `AbsentTree` while there is no file. `publish` runs on the loop thread.
ServedFile ServeTree(const std::string& name, std::function<void(TreeSnapshotPtr)> publish);

}  // namespace zam_service
