#include "vocabulary/state_names.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace zam_vocabulary {
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

std::string StateName(ZamConnectorState state) {
    const auto* const found = std::find_if(kNames.begin(), kNames.end(),
                                           [state](const auto& row) { return row.first == state; });
    // The library hands out known states only; one that it learns first is shown by its number.
    return found == kNames.end() ? std::to_string(static_cast<std::int32_t>(state))
                                 : std::string(found->second);
}

std::optional<ZamConnectorState> StateOfName(std::string_view name) noexcept {
    const auto* const found = std::find_if(kNames.begin(), kNames.end(),
                                           [name](const auto& row) { return row.second == name; });
    return found == kNames.end() ? std::nullopt : std::optional(found->first);
}

std::vector<std::string> StateNames() {
    std::vector<std::string> names;
    names.reserve(kNames.size());
    for (const auto& [state, name] : kNames) {
        names.emplace_back(name);
    }
    return names;
}

}  // namespace zam_vocabulary
