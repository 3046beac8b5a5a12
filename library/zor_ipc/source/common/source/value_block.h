#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "zuv/value.h"

/// The byte block that stands for one value in a raw parameter.

namespace zam_connector::common {

/// In the place of a kind: the index word stands in the bytes.
inline constexpr unsigned char kVerbatimTag = 0x10;
static_assert(kVerbatimTag == zuv::kKindCount);

/// A block where it lies. Pieces leave out the index word when it is a kind, which is then the tag.
struct BlockView {
    unsigned char tag = kVerbatimTag;
    std::string_view bytes;
};

/// The block of a value; of a container, without what is below it. Throws `zuv::Error` when the
/// value has no alternative.
std::vector<unsigned char> EncodeValue(const zuv::TValue& value);

/// The value of a block. A vector gets room for the elements announced, at most for
/// `reservable`, which is lowered by what was reserved. Throws as `RawZamParam::DeserializeValue`.
zuv::TValue DecodeValue(const BlockView& block, std::size_t& reservable);
zuv::TValue DecodeValue(const std::vector<unsigned char>& block, std::size_t& reservable);

}  // namespace zam_connector::common
