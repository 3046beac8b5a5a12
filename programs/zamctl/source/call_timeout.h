#pragma once

#include <chrono>

#include "system_view.h"

namespace zamctl {

/// Longest time for each call of this process from now on, 0 for none, unless the environment says
/// another.
void SetCallTimeout(const SystemView& system, std::chrono::milliseconds timeout);

}  // namespace zamctl
