#pragma once

#include <optional>
#include <string_view>

#include "zam_connector/zam_connector_state.h"

namespace zam_service {

/// The states as the data folder writes them: "waiting_for_reconnect". Thread-safe.
std::string_view StateName(zam_connector::ZamConnectorState state) noexcept;

/// Empty for a text that names no state.
std::optional<zam_connector::ZamConnectorState> StateOfName(std::string_view name) noexcept;

/// All names, for messages.
std::string_view StateNames() noexcept;

}  // namespace zam_service
