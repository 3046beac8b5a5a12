#pragma once

#include <cstdint>

namespace zam_connector {

/// State of the connector's link to the management server.
enum class ZamConnectorState : std::int32_t {
    Stopped = 0,              ///< not started, or stopped; nothing happens until the next start
    Connecting = 1,           ///< an attempt to reach the server is under way
    Connected = 2,            ///< the link is up
    WaitingForReconnect = 3,  ///< the link was lost or could not be made; a new attempt will follow
    Stopping = 4,             ///< the link is being shut down in order
    Refused = 5,  ///< the server turned this device away; no attempt until the next start
};

}  // namespace zam_connector
