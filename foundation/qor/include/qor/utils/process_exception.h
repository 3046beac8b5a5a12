#pragma once

#include <string>
#include <utility>

#include "qel/export.h"

namespace qor::utils {

/// Result code and text of the exception in flight. To be called inside a catch block only: with
/// no exception in flight the process ends, as a bare `throw` does. The text is UTF-8 where the
/// exception's own text is. Throws nothing but for want of memory. Thread-safe.
ZAM_API std::pair<int, std::string> ProcessException();

}  // namespace qor::utils
