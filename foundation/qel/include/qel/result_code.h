#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "qel/export.h"

namespace qel {

/// Result codes are signed 32-bit: 0 is success, 1 the success value "False", a set top bit is a
/// failure. Bits 16 to 30 hold the facility: 0 the general codes, 1 the platform codes.
///
/// `FromBits` gives the signed code of the unsigned number that tables and logs show.
constexpr int FromBits(std::uint32_t bits) noexcept {
    return static_cast<int>(bits);
}

inline constexpr int kNoError = 0;
inline constexpr int kFalse = 1;
inline constexpr int kInvalidArgument = FromBits(0x80000046U);
inline constexpr int kUnspecifiedError = FromBits(0x8000004BU);
inline constexpr int kInvalidSize = FromBits(0x8000005CU);
inline constexpr int kInvalidIndex = FromBits(0x8000005EU);
inline constexpr int kAlreadyDone = FromBits(0x80000067U);
inline constexpr int kInvalidResult = FromBits(0x80000071U);

/// The text of a facility-0 code; "Unknown result code" for every other code. The view is of
/// static storage. Thread-safe.
ZAM_API std::string_view rtl_result_code_message(int code) noexcept;

/// The text of a code of either facility, without the number; "Unknown result code" for a code
/// that neither table holds. The view is of static storage. Thread-safe.
ZAM_API std::string_view ResultCodeMessage(int code) noexcept;

/// `ResultCodeMessage(code)` followed by " = 0x" and the code in eight upper-case hexadecimal
/// digits, as UTF-16. Thread-safe.
ZAM_API std::u16string ResultCodeText(int code);

}  // namespace qel
