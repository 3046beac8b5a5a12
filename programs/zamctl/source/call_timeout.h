#pragma once

#include <chrono>
#include <string>

#include "system_view.h"

namespace zamctl {

/// What is wrong with what the environment says of the time for each call, and what holds then;
/// empty when nothing is. `holds` completes "counts as not set: ...". What is wrong is taken out of
/// the environment, since the library would complain of it too, and in terms of its own default.
/// To be called before the library is.
std::string TakeWrongCallTimeout(const SystemView& system, const std::string& holds);

/// Longest time for each call of this process from now on, 0 for none, unless the environment says
/// another.
void SetCallTimeout(const SystemView& system, std::chrono::milliseconds timeout);

}  // namespace zamctl
