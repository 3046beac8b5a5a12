#include "client/call_under_way.h"

#include "zam_platform/posix_error.h"

namespace zam_platform {
namespace {

PlatformError Cancelled() {
    return {kStatusCancelled, "the call was ended from another thread"};
}

}  // namespace

CallUnderWay::CallUnderWay(VdCallBounds* bounds) noexcept
    : VdCallUnderWay{&CallUnderWay::Interrupt}, bounds_(bounds) {
    if (bounds_ != nullptr && bounds_->enter != nullptr) {
        entered_ = bounds_->enter(bounds_, this) != 0;
        refused_ = !entered_;
    }
}

CallUnderWay::~CallUnderWay() {
    if (entered_) {
        bounds_->leave(bounds_, this);
    }
}

void CallUnderWay::ThrowIfInterrupted() const {
    if (IsEnded()) {
        throw Cancelled();
    }
}

void CallUnderWay::Attach(Channel& channel) {
    if (!entered_) {
        return;
    }
    const qor::MutexLock lock(mutex_);
    if (interrupted_) {
        throw Cancelled();
    }
    channel_ = &channel;
}

bool CallUnderWay::Detach() noexcept {
    if (!entered_) {
        return true;
    }
    const qor::MutexLock lock(mutex_);
    channel_ = nullptr;
    return !interrupted_;
}

bool CallUnderWay::IsEnded() const noexcept {
    if (!entered_) {
        return refused_;
    }
    const qor::MutexLock lock(mutex_);
    return interrupted_;
}

void CallUnderWay::Interrupt(VdCallUnderWay* call) noexcept {
    auto& self = *static_cast<CallUnderWay*>(call);
    const qor::MutexLock lock(self.mutex_);
    self.interrupted_ = true;
    if (self.channel_ != nullptr) {
        self.channel_->Interrupt();
    }
}

}  // namespace zam_platform
