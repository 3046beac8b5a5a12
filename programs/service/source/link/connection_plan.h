#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

#include "json_text/json_document.h"
#include "zam_connector/zam_connector_state.h"

namespace zam_service {

inline constexpr char kConnectionFile[] = "connection.json";

/// Most steps of one sequence: more is a mistake in a script that writes the file.
inline constexpr std::size_t kMaxLinkSteps = 64;

/// Longest delay of the simulation: a day.
inline constexpr std::chrono::milliseconds kMaxLinkDelay{86'400'000};

/// The link enters `state`, `after` behind the step before.
struct LinkStep {
    zam_connector::ZamConnectorState state = zam_connector::ZamConnectorState::Stopped;
    std::chrono::milliseconds after{0};
};

/// A link that does not last.
struct FlapPlan {
    std::chrono::milliseconds up{0};    ///< connected, at least 1 ms
    std::chrono::milliseconds down{0};  ///< then waiting for reconnect, at least 1 ms
};

/// How the simulated link behaves. Default-constructed: what a folder without the file has.
struct ConnectionPlan {
    std::vector<LinkStep> start = {
        {zam_connector::ZamConnectorState::Connecting, std::chrono::milliseconds(0)},
        {zam_connector::ZamConnectorState::Connected, std::chrono::milliseconds(300)}};
    std::vector<LinkStep> stop = {
        {zam_connector::ZamConnectorState::Stopping, std::chrono::milliseconds(0)},
        {zam_connector::ZamConnectorState::Stopped, std::chrono::milliseconds(100)}};
    /// Set: connecting, and refused after that time, in place of `start`.
    std::optional<std::chrono::milliseconds> refuseAfter;
    std::optional<FlapPlan> flap;
    std::optional<int> startResult;       ///< set: what Start answers, without starting
    std::chrono::milliseconds sync{200};  ///< how long a synchronisation takes
};

/// Reads `connection.json`. Throws `zam_json::JsonError`.
ConnectionPlan ReadConnectionPlan(const zam_json::JsonValue& root);

}  // namespace zam_service
