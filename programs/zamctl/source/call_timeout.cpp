#include "call_timeout.h"

#include "zam_connector/call_deadline.h"

void zamctl::SetCallTimeout(const SystemView& system, std::chrono::milliseconds timeout) {
    if (!system.Variable("ZAM_CALL_TIMEOUT_MS")) {
        zam_connector::SetDefaultCallTimeout(timeout);
    }
}
