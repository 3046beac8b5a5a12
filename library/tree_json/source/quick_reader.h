#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "zuv/value.h"

namespace zam_connector::tree_json {

/// Levels that are read quickly. Each takes some KiB of stack where the build instruments it, since
/// the parser is inlined into every frame; the reader with places keeps what is promised of the
/// stack down to `kMaxDepth`, and texts that are nested deeper than this are not long.
inline constexpr std::size_t kMaxQuickDepth = 64;

/// The tree of a good text without byte order mark, the same that `ReadWithPlaces` makes of it, in
/// a fraction of the time. Empty for a text that is not good, and for some that are:
/// `ReadWithPlaces` decides. Throws for want of memory. Thread-safe.
std::optional<zuv::TValue> ReadQuickly(std::string_view text);

}  // namespace zam_connector::tree_json
