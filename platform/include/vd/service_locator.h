#pragma once

#include <stdint.h>

#include "qel/export.h"

/// The system's service locator. Both functions may block and may be called from any thread.

extern "C" {

/// The riid that stands for "unknown".
#define VD_UNKNOWN_RIID UINT16_C(0xFFFF)

/// Connects to the service of that name (a C string). Returns its handle, or 0xFFFFFFFF when there
/// is no such service or it may not be used. The same service gives the same handle; handles are
/// not closed.
ZAM_API uint32_t ServiceLocatorConnect(const char* name);

/// The 16-bit interface id of a named endpoint of the service behind `handle`; 0xFFFF when the
/// service has no such endpoint or does not answer.
ZAM_API uint16_t ServiceLocatorGetRiid(uint32_t handle, const char* endpoint);

}  // extern "C"
