#pragma once

#include <string>

#include "zuv/path.h"

namespace zamctl {

/// Reads a path into a tree as people write it, "limits/0/name"; one slash before it is passed
/// over, and the one behind it may be missing. Throws `UsageError`, which names `name`.
zuv::Path ParseTreePath(const std::string& name, const std::string& text);

}  // namespace zamctl
