#pragma once

#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// An endpoint that must know which of its calls met with a fault: what was lost or told wrong on
/// the way is lost for its client.
class FaultWitness {
public:
    virtual ~FaultWitness() = default;

    /// The call is not handed on, or its answer will be changed. On the loop thread.
    virtual void OnFault(const zam_platform::Request& request) = 0;
};

}  // namespace zam_service
