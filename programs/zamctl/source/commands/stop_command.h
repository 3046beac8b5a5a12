#pragma once

#include <chrono>

#include "command.h"
#include "wait_for_state.h"

namespace zamctl {

/// Stops the link.
class StopCommand final : public Command {
public:
    struct Options {
        bool wait = false;  ///< until the link is down
        std::chrono::milliseconds timeout = kDefaultTimeout;
    };

    explicit StopCommand(Options options) : options_(options) {}

    void Run(Context& context) override;

private:
    Options options_;
};

}  // namespace zamctl
