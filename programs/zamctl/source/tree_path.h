#pragma once

#include <string>

#include "zuv/path.h"

/// Paths into trees as people write them and as messages show them, "limits/0/name/".

namespace zamctl {

/// Reads a path; one slash before it is passed over, and the one behind it may be missing. Throws
/// `UsageError`, which names `name`.
zuv::Path ParseTreePath(const std::string& name, const std::string& text);

/// Empty for the root, and for a path that has no text form.
std::string TreePathText(const zuv::Path& path);

}  // namespace zamctl
