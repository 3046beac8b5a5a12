#include "call_canceller.h"

#include <algorithm>
#include <new>

namespace zam_connector::proxy {

void CallCanceller::Cancel() noexcept {
    const qor::MutexLock lock(mutex_);
    isCancelled_ = true;
    for (VdCallUnderWay* const call : calls_) {
        call->interrupt(call);
    }
}

bool CallCanceller::IsCancelled() const noexcept {
    const qor::MutexLock lock(mutex_);
    return isCancelled_;
}

bool CallCanceller::Enter(VdCallUnderWay* call) noexcept {
    const qor::MutexLock lock(mutex_);
    if (isCancelled_) {
        return false;
    }
    try {
        calls_.push_back(call);
        return true;
    } catch (const std::bad_alloc&) {
        return false;  // a call that nobody could end must not begin
    }
}

void CallCanceller::Leave(VdCallUnderWay* call) noexcept {
    const qor::MutexLock lock(mutex_);
    calls_.erase(std::remove(calls_.begin(), calls_.end(), call), calls_.end());
}

CallScope::CallScope(CallCanceller* canceller) noexcept : bounds_{} {
    bounds_.canceller = canceller;
    bounds_.lastStatus = kNoCall;
    bounds_.outer = VdZorTransport_SetCallBounds(&bounds_);
    if (bounds_.outer != nullptr) {
        bounds_.deadlineNs = bounds_.outer->deadlineNs;
    }
    if (canceller != nullptr || (bounds_.outer != nullptr && bounds_.outer->enter != nullptr)) {
        bounds_.enter = &CallScope::Enter;
        bounds_.leave = &CallScope::Leave;
    }
}

CallScope::~CallScope() {
    if (bounds_.outer != nullptr && bounds_.lastStatus != kNoCall) {
        bounds_.outer->lastStatus = bounds_.lastStatus;
    }
    VdZorTransport_SetCallBounds(bounds_.outer);
}

int CallScope::Enter(VdCallBounds* bounds, VdCallUnderWay* call) noexcept {
    const auto& self = *static_cast<Bounds*>(bounds);
    if (self.canceller != nullptr && !self.canceller->Enter(call)) {
        return 0;
    }
    if (self.outer != nullptr && self.outer->enter != nullptr &&
        self.outer->enter(self.outer, call) == 0) {
        if (self.canceller != nullptr) {
            self.canceller->Leave(call);
        }
        return 0;
    }
    return 1;
}

void CallScope::Leave(VdCallBounds* bounds, VdCallUnderWay* call) noexcept {
    const auto& self = *static_cast<Bounds*>(bounds);
    if (self.outer != nullptr && self.outer->leave != nullptr) {
        self.outer->leave(self.outer, call);
    }
    if (self.canceller != nullptr) {
        self.canceller->Leave(call);
    }
}

}  // namespace zam_connector::proxy
