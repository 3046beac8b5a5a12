#pragma once

#include <cstddef>
#include <vector>

#include "zuv/value.h"

/// The byte block that stands for one value in a raw parameter.

namespace zam_connector::common {

/// The block of a value; of a container, without what is below it. Throws `zuv::Error` when the
/// value has no alternative.
std::vector<unsigned char> EncodeValue(const zuv::TValue& value);

/// The value of a block. A vector gets room for the elements announced, at most for
/// `reservable`, which is lowered by what was reserved. Throws as `RawZamParam::DeserializeValue`.
zuv::TValue DecodeValue(const std::vector<unsigned char>& block, std::size_t& reservable);

}  // namespace zam_connector::common
