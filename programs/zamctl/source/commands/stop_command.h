#pragma once

#include <chrono>
#include <optional>

#include "command.h"
#include "wait_for_state.h"

namespace zamctl {

/// Stops the link.
class StopCommand final : public Command {
public:
    void Declare(Options& options) override;
    std::optional<std::chrono::milliseconds> Limit(
        std::optional<std::chrono::milliseconds> asked) const override {
        return waits_ ? LimitOfWait(asked) : asked;
    }
    void Run(Context& context) override;

private:
    bool waits_ = false;  ///< until the link is down
};

}  // namespace zamctl
