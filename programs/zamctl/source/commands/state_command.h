#pragma once

#include <chrono>
#include <optional>

#include "commands/watch_command.h"
#include "wait_for_state.h"
#include "zam_connector/zam_connector_state.h"

namespace zamctl {

/// Prints the state of the link, at once or when it is the one waited for, or each change of it.
class StateCommand final : public Command {
public:
    void Declare(Options& options) override;
    std::optional<std::chrono::milliseconds> Limit(
        std::optional<std::chrono::milliseconds> asked) const override {
        return waitFor_ ? LimitOfWait(asked) : asked;
    }
    std::chrono::milliseconds CallTimeout() const override {
        return watches_ ? watch_.CallTimeout() : Command::CallTimeout();
    }
    void Run(Context& context) override;

private:
    std::optional<zam_connector::ZamConnectorState> waitFor_;
    bool watches_ = false;
    WatchCommand watch_{{NoticeKind::State}};
};

}  // namespace zamctl
