#pragma once

#include <chrono>
#include <utility>

#include "command.h"
#include "wait_for_state.h"
#include "zam_connector/zam_connection_parameters.h"

namespace zamctl {

/// Most bytes that the four texts of the parameters may take together: they share one message.
inline constexpr std::size_t kMaxStartTextBytes = 1360;

/// Starts the link.
class StartCommand final : public Command {
public:
    struct Options {
        zam_connector::ZamConnectionParameters parameters;
        bool wait = false;  ///< until the link is up or the server has refused
        std::chrono::milliseconds timeout = kDefaultTimeout;
    };

    /// Throws `UsageError` when the texts are too long.
    explicit StartCommand(Options options);

    void Run(Context& context) override;

private:
    Options options_;
};

}  // namespace zamctl
