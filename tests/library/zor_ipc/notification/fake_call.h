#pragma once

#include <atomic>

#include "vd/call_bounds.h"

namespace zam_connector::test {

/// A call as the platform makes it, on this thread.
class FakeCall : public VdCallUnderWay {
public:
    FakeCall() : VdCallUnderWay{&FakeCall::Interrupt}, bounds_(Bounds()) {
        isEntered =
            bounds_ == nullptr || bounds_->enter == nullptr || bounds_->enter(bounds_, this) != 0;
    }
    FakeCall(const FakeCall&) = delete;
    FakeCall& operator=(const FakeCall&) = delete;
    ~FakeCall() { Leave(); }

    /// Ends the call; more than once is as once.
    void Leave() {
        if (isEntered && bounds_ != nullptr && bounds_->leave != nullptr) {
            bounds_->leave(bounds_, this);
        }
        isEntered = false;
    }

    /// What bounds the calls of this thread.
    static VdCallBounds* Bounds() {
        VdCallBounds* const bounds = VdZorTransport_SetCallBounds(nullptr);
        VdZorTransport_SetCallBounds(bounds);
        return bounds;
    }

    bool isEntered = false;
    std::atomic<int> interruptions = 0;

private:
    static void Interrupt(VdCallUnderWay* call) {
        auto& interruptions = static_cast<FakeCall*>(call)->interruptions;
        ++interruptions;
        interruptions.notify_all();
    }

    VdCallBounds* const bounds_;
};

}  // namespace zam_connector::test
