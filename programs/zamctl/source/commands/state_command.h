#pragma once

#include <chrono>
#include <optional>

#include "command.h"
#include "wait_for_state.h"
#include "zam_connector/zam_connector_state.h"

namespace zamctl {

/// Prints the state of the link, at once or when it is the one waited for.
class StateCommand final : public Command {
public:
    struct Options {
        std::optional<zam_connector::ZamConnectorState> waitFor;
        std::chrono::milliseconds timeout = kDefaultTimeout;
    };

    explicit StateCommand(Options options) : options_(options) {}

    void Run(Context& context) override;

private:
    Options options_;
};

}  // namespace zamctl
