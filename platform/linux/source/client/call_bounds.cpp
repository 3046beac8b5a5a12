#include "client/call_bounds.h"

#include <utility>

namespace {

thread_local VdCallBounds* callBounds = nullptr;

}  // namespace

VdCallBounds* VdZorTransport_SetCallBounds(VdCallBounds* bounds) {
    return std::exchange(callBounds, bounds);
}

VdCallBounds* zam_platform::CallBounds() noexcept {
    return callBounds;
}
