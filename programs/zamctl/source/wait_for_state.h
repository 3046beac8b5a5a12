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

/// What is waited for, and for how long. With a timeout of 0 the state is asked for once.
struct Wait {
    zam_connector::ZamConnectorState target;
    std::chrono::milliseconds timeout = kDefaultTimeout;
    /// The state in which there is nothing left to wait for.
    std::optional<zam_connector::ZamConnectorState> hopeless;
};

/// A state, with the code of the call that brought it, which is a success.
struct StateAnswer {
    zam_connector::ZamConnectorState state;
    int code;
};

/// Asks for the state once. Throws `CallFailure`.
StateAnswer AskState(Context& context, const zam_connector::IZamConnController& controller);

/// Asks for the state, at least once, until it is the target. Throws `CallFailure`, and `Failure`
/// when the time has run out or the hopeless state is reached.
StateAnswer WaitForState(Context& context, const zam_connector::IZamConnController& controller,
                         const Wait& wait);

}  // namespace zamctl
