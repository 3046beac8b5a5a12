#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "common/raw_zam_param.h"
#include "zuv/value.h"

namespace zam_bench {

using ParamList = std::vector<zam_connector::common::RawZamParam>;

/// The tree as a list. Throws `std::runtime_error` when it cannot be flattened.
ParamList Flatten(const zuv::TValue& tree);

/// The tree of a list. Throws `std::runtime_error` when the list makes none.
zuv::TValue Rebuild(const ParamList& list);

/// A list cut as uploads are: at most ten records in a piece. The list must outlive the pieces.
std::vector<std::span<const zam_connector::common::RawZamParam>> Cut(const ParamList& list);

}  // namespace zam_bench
