#pragma once

#include <chrono>

#include "command.h"
#include "wait_for_state.h"

namespace zamctl {

/// Stops the link.
class StopCommand final : public Command {
public:
    void Declare(Options& options) override;
    void Run(Context& context) override;

private:
    bool waits_ = false;  ///< until the link is down
    std::chrono::milliseconds timeout_ = kDefaultTimeout;
};

}  // namespace zamctl
