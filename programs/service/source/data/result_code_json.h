#pragma once

#include "data/json_file.h"

namespace zam_service {

/// A result code: a signed 32-bit number, or a text of "0x" and 1 to 8 hexadecimal digits, as logs
/// show it. Throws `JsonError`.
int ReadResultCode(const JsonValue& value);

}  // namespace zam_service
