#pragma once

#include <string>

#include "qel/export.h"

namespace qor::qelx {

/// The code's text followed by " = 0x" and the code in eight upper-case hexadecimal digits:
/// "Unspecified error = 0x8000004B". Codes that are in neither the general nor the platform table
/// give "Unknown result code". Thread-safe.
ZAM_API std::u16string ResultCodeText(int code);

}  // namespace qor::qelx
