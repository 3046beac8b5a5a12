#pragma once

#include <cstdint>

#include "vd/call_bounds.h"
#include "zam_platform/channel.h"

namespace zam_platform {

/// What bounds the calls of the calling thread; null for nothing.
VdCallBounds* CallBounds() noexcept;

/// Writes what the calling thread's last call has come to, and gives it.
std::int32_t EndCall(std::int32_t status) noexcept;

/// The moment by which a call that begins now must have ended, by its thread's bounds and the
/// process's time-out. Reads no clock when there is neither.
Deadline DeadlineOf(const VdCallBounds* bounds);

/// The earlier of two moments, none being later than any.
Deadline Earlier(const Deadline& one, const Deadline& other);

}  // namespace zam_platform
