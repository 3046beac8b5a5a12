#pragma once

#include "zam_platform/channel.h"
#include "zam_platform/frame.h"
#include "zam_platform/posix_error.h"

namespace zam_platform {

/// What a service that turns a client away has said.
PlatformError Refused(const Prelude& refusal);

/// Reads the `kPreludeBytes` bytes that a frame of a service begins with. Throws `PlatformError`.
Prelude ReadHead(const unsigned char* head);

/// Checks an answer's head against what is awaited: its sizes are then what `frame` has room for.
/// Throws `PlatformError`.
void CheckAnswer(const Prelude& prelude, const IncomingFrame& frame);

}  // namespace zam_platform
