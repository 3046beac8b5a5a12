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

/// `Command::Limit` of a command that waits for a state.
std::chrono::milliseconds LimitOfWait(std::optional<std::chrono::milliseconds> asked);

/// What is waited for.
struct Wait {
    zam_connector::ZamConnectorState target;
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

/// Asks for the state, at least once, until it is the target or the command's time has run out,
/// `kDefaultTimeout` without any; with 0 it is asked for once. Throws `CallFailure`, and `Failure`
/// when the time has run out or the hopeless state is reached.
StateAnswer WaitForState(Context& context, const zam_connector::IZamConnController& controller,
                         const Wait& wait);

}  // namespace zamctl
