#pragma once

#include "fuzz_input.h"

namespace zam_fuzz {

/// Plays an input for a client's channel that goes through memory which a hostile service gave it.
void PlayClientMemory(Input input);

}  // namespace zam_fuzz
