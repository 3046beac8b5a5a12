#pragma once

#include "zam_connector/zam_connector_state.h"

namespace zam_connector::proxy {

/// The observers of the connection's state as the processor sees them. Thread-safe.
class IZamConnStateManager {
public:
    virtual ~IZamConnStateManager() = default;

    /// Calls the live observers, in the order of their cookies. What an observer throws goes
    /// through.
    virtual void SetZamConnectorState(ZamConnectorState state) = 0;
};

}  // namespace zam_connector::proxy
