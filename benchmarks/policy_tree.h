#pragma once

#include <cstddef>

#include "zuv/value.h"

namespace zam_bench {

/// A tree of `nodes` nodes such as a policy has, always the same one: maps and a few vectors 3 to 6
/// levels deep, about 10 % of the nodes; of all nodes 40 % strings of 8 to 40 bytes, 30 % integers,
/// 10 % bools, 5 % doubles, 5 % blobs of 16 to 256 bytes.
zuv::TValue MakePolicyTree(std::size_t nodes);

}  // namespace zam_bench
