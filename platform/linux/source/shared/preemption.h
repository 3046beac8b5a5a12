#pragma once

namespace zam_platform {

/// Whether the scheduler has given the calling thread's CPU to somebody else since the thread asked
/// before. A hole in a thread's time that is none of these was an interrupt's, or the machine's
/// host's. Makes a system call.
bool HasBeenPreempted() noexcept;

}  // namespace zam_platform
