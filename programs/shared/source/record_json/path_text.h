#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zuv/path.h"

/// Paths into trees as the service reads and writes them: levels end with "/". Thread-safe.

namespace zam_json {

/// The slash at the end may be missing. Empty for what is no path.
std::optional<zuv::Path> PathFromText(std::string_view text);

/// Empty for the root, and for a path that has no text form.
std::string PathText(const zuv::Path& path);

}  // namespace zam_json
