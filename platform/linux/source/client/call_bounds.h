#pragma once

#include "vd/call_bounds.h"

namespace zam_platform {

/// What bounds the calls of the calling thread; null for nothing.
VdCallBounds* CallBounds() noexcept;

}  // namespace zam_platform
