#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "command.h"
#include "zam_connector/zam_connector_state.h"

namespace zamctl {

inline constexpr std::chrono::milliseconds kDefaultTimeout{30000};

/// Between two looks at the state.
inline constexpr std::chrono::milliseconds kPollInterval{50};

/// What the help says of a `--timeout` that limits a wait for a state.
std::string WaitTimeoutHelp();

struct Wait {
    zam_connector::ZamConnectorState target;
    std::chrono::milliseconds timeout = kDefaultTimeout;
    /// The state in which there is nothing left to wait for.
    std::optional<zam_connector::ZamConnectorState> hopeless;
};

/// Asks for the state once. Throws `CallFailure`.
struct StateAnswer {
    zam_connector::ZamConnectorState state;
    int code;
};
StateAnswer AskState(Context& context, const zam_connector::IZamConnController& controller);

/// Asks for the state, at least once, until it is the target. Throws `CallFailure`, and `Failure`
/// when the time has run out or the hopeless state is reached.
StateAnswer WaitForState(Context& context, const zam_connector::IZamConnController& controller,
                         const Wait& wait);

}  // namespace zamctl
