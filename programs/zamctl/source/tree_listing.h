#pragma once

#include <string>

#include "zuv/value.h"

namespace zamctl {

/// Most bytes of a blob that a listing shows.
inline constexpr std::size_t kMaxListedBlobBytes = 32;

/// A tree for people to read, one node in a line, children indented, without a line end at the end.
/// Nothing in it can harm a terminal. Long blobs are cut. Trees of any depth can be listed.
std::string ListTree(const zuv::TValue& tree);

}  // namespace zamctl
