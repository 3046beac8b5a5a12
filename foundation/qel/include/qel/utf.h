#pragma once

#include <string>
#include <string_view>

#include "qel/export.h"

namespace qel {

/// UTF-8 to UTF-16. Every maximal ill-formed sequence becomes one U+FFFD, as the Unicode standard
/// (section 3.9, "U+FFFD Substitution of Maximal Subparts") recommends; nothing is thrown but for
/// want of memory. Thread-safe.
ZAM_API std::u16string ToUtf16(std::string_view text);

/// UTF-16 to UTF-8; a surrogate without its partner becomes U+FFFD. Thread-safe.
ZAM_API std::string ToUtf8(std::u16string_view text);

/// Whether `text` is well-formed UTF-8, as the empty text is. Thread-safe.
ZAM_API bool IsUtf8(std::string_view text) noexcept;

}  // namespace qel
