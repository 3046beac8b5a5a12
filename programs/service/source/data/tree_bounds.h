#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "zuv/value.h"

namespace zam_service {

/// Bounds of a tree that is served, so that it can be told how much memory reading it takes: about
/// 240 bytes for a node, and three times the text.
struct TreeBounds {
    std::size_t nodes = std::size_t{4} << 20U;
    /// Of all values and paths together, as they cross: every node repeats the path that leads to
    /// it, so that a long key above many nodes takes any amount.
    std::size_t bytes = std::size_t{256} << 20U;
};

/// Throws `zam_platform::PlatformError` for the text of a tree that has too many nodes without
/// doubt, in which what stands for one node counts twice at most. Reading such a text would take
/// the memory already.
void CheckTextBounds(const std::string& name, std::string_view text, const TreeBounds& bounds);

/// The same for a tree, exactly.
void CheckTreeBounds(const std::string& name, const zuv::TValue& tree, const TreeBounds& bounds);

}  // namespace zam_service
