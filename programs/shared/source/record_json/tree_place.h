#pragma once

#include <string>
#include <string_view>

#include "zuv/path.h"

namespace zam_json {

/// JSON pointer of the node at `path` into a typed JSON text that was read without a fault: the
/// members that name kinds are in it. Ends with the last step that the text has. Throws for want of
/// memory.
std::string PointerOf(std::string_view text, const zuv::Path& path);

}  // namespace zam_json
