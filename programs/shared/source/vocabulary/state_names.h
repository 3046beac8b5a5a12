#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zam_connector/zam_connector_state.h"

/// The states of the link as people write and read them. Thread-safe.

namespace zam_vocabulary {

/// "stopped", "connecting", "connected", "waiting_for_reconnect", "stopping" or "refused"; the
/// number of a state that is none of them.
std::string StateName(zam_connector::ZamConnectorState state);

/// Empty when no state has that name.
std::optional<zam_connector::ZamConnectorState> StateOfName(std::string_view name) noexcept;

/// All six, in the order of their numbers.
std::vector<std::string> StateNames();

}  // namespace zam_vocabulary
