#pragma once

#include "zam_connector/zam_connection_parameters.h"
#include "zam_connector/zam_connector_state.h"

namespace zam_connector {

/// Starts and stops the connector service's link to the management server and tells its state.
///
/// Every operation blocks until the service has answered or cannot be reached, returns a result
/// code (`zam_connector/result_code.h`) and never throws. Thread-safe: any number of threads may
/// call at once.
class IZamConnController {
public:
    virtual ~IZamConnController() = default;

    /// Starts the link with these parameters. Returns when the service has taken the request, not
    /// when the link is up. 0x8000004B when the parameters do not fit the message or the service
    /// could not be reached; otherwise what the service answers.
    virtual int Start(const ZamConnectionParameters& parameters) noexcept = 0;

    /// Stops the link. 0x8000004B when the service could not be reached; otherwise what the
    /// service answers.
    virtual int Stop() noexcept = 0;

    /// Stores the state of the link in `state`. 0x8000004B, with `state` unchanged, when the
    /// service could not be reached or names a state that is not known here; otherwise `state` is
    /// written and what the service answers is returned, also when that is a failure.
    virtual int GetState(ZamConnectorState& state) const noexcept = 0;
};

}  // namespace zam_connector
