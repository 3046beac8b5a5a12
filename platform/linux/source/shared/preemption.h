#pragma once

#include <chrono>

namespace zam_platform {

/// Whether the scheduler has given the calling thread's CPU to somebody else since the thread asked
/// before, which was some milliseconds before this `hole` at most: of a longer time it is not
/// known. A hole in a thread's time that is none of these was an interrupt's, the machine's host's,
/// or the thread's own work. Makes a system call.
bool HasBeenPreempted(std::chrono::nanoseconds hole) noexcept;

}  // namespace zam_platform
