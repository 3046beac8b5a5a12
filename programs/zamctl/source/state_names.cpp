#include "state_names.h"

#include <array>
#include <utility>

namespace zamctl {
namespace {

using zam_connector::ZamConnectorState;

constexpr std::array<std::pair<ZamConnectorState, const char*>, 6> kStates{{
    {ZamConnectorState::Stopped, "stopped"},
    {ZamConnectorState::Connecting, "connecting"},
    {ZamConnectorState::Connected, "connected"},
    {ZamConnectorState::WaitingForReconnect, "waiting_for_reconnect"},
    {ZamConnectorState::Stopping, "stopping"},
    {ZamConnectorState::Refused, "refused"},
}};

}  // namespace

std::string StateName(ZamConnectorState state) {
    for (const auto& [known, name] : kStates) {
        if (known == state) {
            return name;
        }
    }
    // The library hands out known states only; one that it learns first is shown by its number.
    return std::to_string(static_cast<std::int32_t>(state));
}

std::optional<ZamConnectorState> ParseState(std::string_view name) {
    for (const auto& [state, known] : kStates) {
        if (known == name) {
            return state;
        }
    }
    return std::nullopt;
}

std::vector<std::string> StateNames() {
    std::vector<std::string> names;
    names.reserve(kStates.size());
    for (const auto& [state, name] : kStates) {
        names.emplace_back(name);
    }
    return names;
}

}  // namespace zamctl
