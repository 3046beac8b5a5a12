#pragma once

#include <chrono>

#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// An endpoint that must know which of its calls met with a fault: what was lost or told wrong on
/// the way is lost for its client.
class FaultWitness {
public:
    virtual ~FaultWitness() = default;

    /// The call is not handed on, or its answer will be changed. On the loop thread.
    virtual void OnFault(const zam_platform::Request& request) = 0;

    /// For how long a call that fails by a fault is to be held back, because its client would call
    /// again at once. On the loop thread.
    virtual std::chrono::milliseconds HoldBack(const zam_platform::Request& /*request*/) {
        return std::chrono::milliseconds(0);
    }
};

}  // namespace zam_service
