#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zam_connector/zam_connector_state.h"

namespace zamctl {

/// "stopped", "connecting", "connected", "waiting_for_reconnect", "stopping" or "refused".
std::string StateName(zam_connector::ZamConnectorState state);

/// Empty when no state has that name.
std::optional<zam_connector::ZamConnectorState> ParseState(std::string_view name);

/// All six, in the order of their numbers.
std::vector<std::string> StateNames();

}  // namespace zamctl
