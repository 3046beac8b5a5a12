#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "qel/export.h"

/// Addresses of nodes inside a tree, and their text form. Everything here is thread-safe.

namespace zuv {

/// One step of a path: a position in a vector (from 0) or a key of a map.
using Level = std::variant<unsigned long, std::string>;

/// The steps from the root of a tree down to a node.
using Path = std::vector<Level>;

/// The path of a whole tree.
ZAM_API inline const Path Root;

/// How paths are written as text.
struct IdSpec {
    /// The first character separates levels; all of them, the separator included, are reserved and
    /// may not appear in a key.
    std::string chars;
    /// Largest position that a path may hold; 0: no limit.
    unsigned long maxIndex = 0;
};

/// What became of a conversion between a path and its text. In messages it stands as its number.
enum class IdState : std::uint8_t {
    Ok = 0,
    NoAlternative = 1,       ///< a level holds neither a position nor a key (`ToString`)
    IndexTooLarge = 2,       ///< a position exceeds `IdSpec::maxIndex`
    NumberConversion = 3,    ///< a position beyond 64 bits, or one that could not be written
    EmptyKey = 4,            ///< a key is empty (`ToString`)
    EmptyLevel = 5,          ///< a leading separator, or two in a row (`FromString`)
    KeyBeginsWithDigit = 6,  ///< a key begins with a decimal digit (`ToString`)
    ReservedCharacter = 7,   ///< a reserved character in a key, or a non-digit behind a digit
    NoCharacters = 8,        ///< `IdSpec::chars` is empty
};

/// The text of a path: every level in order, each followed by the separator, so that the path "a",
/// 0, "b" gives `a/0/b/` and the root gives the empty text. The first level that cannot be written
/// ends the conversion; the text is then empty and the state tells why. Throws nothing but for
/// want of memory.
template <typename TPath>
std::pair<std::string, IdState> ToString(const TPath& path, const IdSpec& spec);
template <>
ZAM_API std::pair<std::string, IdState> ToString<Path>(const Path& path, const IdSpec& spec);

/// The path of a text. A level that begins with a digit is a position, every other a key; a single
/// separator at the end is optional. On failure the path is empty and the state tells why. Throws
/// nothing but for want of memory.
ZAM_API std::pair<Path, IdState> FromString(std::string_view text, const IdSpec& spec);

}  // namespace zuv
