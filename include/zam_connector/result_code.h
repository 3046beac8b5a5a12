#pragma once

#include <string>

#include "qel/export.h"

namespace zam_connector {

/// Result codes are signed 32-bit numbers: 0 is success, 1 the success value "False", and a
/// negative number a failure. `kUnspecifiedError` is what the library itself returns when a call
/// could not be made; every other code comes from the connector service.
inline constexpr int kNoError = 0;
inline constexpr int kFalse = 1;
inline constexpr int kUnspecifiedError = -2147483573;  ///< 0x8000004B

/// True for a failure.
constexpr bool IsFailure(int code) noexcept {
    return code < 0;
}

/// The text of a code: "Unspecified error" for 0x8000004B; "Unknown result code" for a number that
/// is no known code. UTF-8. Thread-safe.
ZAM_API std::string ResultCodeMessage(int code);

}  // namespace zam_connector
