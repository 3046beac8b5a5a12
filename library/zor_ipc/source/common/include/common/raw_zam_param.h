#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "qel/export.h"
#include "zuv/path.h"
#include "zuv/value.h"

/// Trees as flat lists: one record per node, parents before children. Everything here is
/// thread-safe as long as nobody changes the arguments meanwhile.

namespace zam_connector::common {

/// Most elements that a vector's record may announce. A list cannot hold as many records; a larger
/// number is damage.
inline constexpr std::uint64_t kMaxAnnouncedElements = std::uint64_t{1} << 31U;

/// Most elements that `RawZamParam::DeserializeValue` reserves room for because a record announces
/// them: a few MiB. What a vector needs beyond, it gets as its elements come. `Deserialize` has a
/// bound of its own.
inline constexpr std::size_t kMaxReservedElements = 65536;

/// Most none values that one rebuild puts into the gaps of vectors, in all: about 1 GiB, and twice
/// as much while a vector with such a gap grows further. Without a limit, one short record could
/// ask for any amount of memory.
inline constexpr std::size_t kMaxFilledElements = std::size_t{1} << 24U;

/// Bytes before the data of a value block.
inline constexpr std::size_t kValueHeaderBytes = 16;

/// A node of a tree, flattened.
struct ZAM_API RawZamParam {
    /// The node's value: the index of its alternative and a payload word, both 64-bit
    /// little-endian, and behind them the bytes of a string or blob.
    std::vector<unsigned char> value;

    /// The node's whole path as text; empty for a root that is the whole tree.
    std::string path;

    /// Decodes `value`: a vector comes out empty, with room for the elements announced (at most
    /// `kMaxReservedElements`), a map empty. Bytes behind a complete value are ignored. Throws
    /// `zuv::Error` for a block that is cut off (0x8000005c) or of an unknown alternative
    /// (0x8000005e), and `std::length_error` for a string without its closing zero and for a
    /// vector that announces more than `kMaxAnnouncedElements`. `out` is as before then.
    void DeserializeValue(zuv::TValue& out) const;

    friend bool operator==(const RawZamParam& left, const RawZamParam& right) {
        return left.value == right.value && left.path == right.path;
    }
    friend bool operator!=(const RawZamParam& left, const RawZamParam& right) {
        return !(left == right);
    }
};

/// Bytes of a record's value and path together: what pieces are cut by.
inline std::size_t WeightOf(const RawZamParam& record) noexcept {
    return record.value.size() + record.path.size();
}

/// Appends the records of `tree`, which stands at `root`, to `out`: one per node, in the order of
/// `zuv::ForEach`. Returns (0, empty text), or the code and message of what is wrong, with `out` as
/// before: 0x8000006a for a node without an alternative, 0x80000046 for a path that cannot be
/// written. Throws `std::bad_alloc` only where there is no memory for the message either.
template <typename TPath>
std::pair<int, std::string> Serialize(const TPath& root, const zuv::TValue& tree,
                                      std::vector<RawZamParam>& out);
template <>
ZAM_API std::pair<int, std::string> Serialize<zuv::Path>(const zuv::Path& root,
                                                         const zuv::TValue& tree,
                                                         std::vector<RawZamParam>& out);

/// Rebuilds the tree of a list whose first record is the tree's root. Returns (0, empty text), or
/// the code and message of the first record that is wrong, with `root` and `tree` as before. A
/// record may return to any shallower level, and positions in a vector may skip ahead: the gap is
/// filled with none values, at most `kMaxFilledElements` in all. For all vectors together, room is
/// reserved for no more elements than the list has records. Throws `std::bad_alloc` only where
/// there is no memory for the message either.
ZAM_API std::pair<int, std::string> Deserialize(const std::vector<RawZamParam>& list,
                                                zuv::Path& root, zuv::TValue& tree);

}  // namespace zam_connector::common
