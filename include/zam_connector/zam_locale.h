#pragma once

#include <cstdint>
#include <string>

namespace zam_connector {

/// A Microsoft locale identifier (LCID). Bits 0 to 7 are the primary language, bits 8 to 15 the
/// location; location 0 is a language without location, a neutral locale.
using LocaleIdType = std::uint32_t;

namespace zam_locale {

/// A locale of user interfaces. A value type.
struct ZamLocale {
    std::string name;  ///< the locale's tag, as in "en-US"
    LocaleIdType id = 0;
    bool isDefault = false;      ///< true for the one default locale
    bool isRightToLeft = false;  ///< the language is written from right to left
};

inline bool operator==(const ZamLocale& left, const ZamLocale& right) {
    return left.name == right.name && left.id == right.id && left.isDefault == right.isDefault &&
           left.isRightToLeft == right.isRightToLeft;
}
inline bool operator!=(const ZamLocale& left, const ZamLocale& right) {
    return !(left == right);
}

}  // namespace zam_locale
}  // namespace zam_connector
