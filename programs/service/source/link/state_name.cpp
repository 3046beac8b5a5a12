#include "link/state_name.h"

#include <algorithm>
#include <array>
#include <utility>

namespace zam_service {
namespace {

using zam_connector::ZamConnectorState;

constexpr auto kNames = std::to_array<std::pair<ZamConnectorState, std::string_view>>({
    {ZamConnectorState::Stopped, "stopped"},
    {ZamConnectorState::Connecting, "connecting"},
    {ZamConnectorState::Connected, "connected"},
    {ZamConnectorState::WaitingForReconnect, "waiting_for_reconnect"},
    {ZamConnectorState::Stopping, "stopping"},
    {ZamConnectorState::Refused, "refused"},
});

}  // namespace

std::string_view StateName(ZamConnectorState state) noexcept {
    const auto* const found = std::find_if(kNames.begin(), kNames.end(),
                                           [state](const auto& row) { return row.first == state; });
    return found == kNames.end() ? "unknown" : found->second;
}

std::optional<ZamConnectorState> StateOfName(std::string_view name) noexcept {
    const auto* const found = std::find_if(kNames.begin(), kNames.end(),
                                           [name](const auto& row) { return row.second == name; });
    return found == kNames.end() ? std::nullopt : std::optional(found->first);
}

std::string_view StateNames() noexcept {
    return "stopped, connecting, connected, waiting_for_reconnect, stopping, refused";
}

}  // namespace zam_service
