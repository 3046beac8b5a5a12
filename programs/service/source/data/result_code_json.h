#pragma once

#include "json_text/json_document.h"

namespace zam_service {

/// A result code: a signed 32-bit number, or a text of "0x" and 1 to 8 hexadecimal digits, as logs
/// show it. Throws `zam_json::JsonError`.
int ReadResultCode(const zam_json::JsonValue& value);

}  // namespace zam_service
