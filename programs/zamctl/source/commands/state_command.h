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
    void Run(Context& context) override;

private:
    std::optional<zam_connector::ZamConnectorState> waitFor_;
    std::chrono::milliseconds timeout_ = kDefaultTimeout;
    bool watches_ = false;
    WatchCommand watch_{{NoticeKind::State}};
};

}  // namespace zamctl
