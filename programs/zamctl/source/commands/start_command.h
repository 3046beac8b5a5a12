#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include "command.h"
#include "wait_for_state.h"
#include "zam_connector/zam_connection_parameters.h"

namespace zamctl {

/// Most bytes that the four texts of the parameters may take together: they share one message.
inline constexpr std::size_t kMaxStartTextBytes = 1360;

/// Starts the link.
class StartCommand final : public Command {
public:
    void Declare(Options& options) override;
    std::optional<std::chrono::milliseconds> Limit(
        std::optional<std::chrono::milliseconds> asked) const override {
        return waits_ ? LimitOfWait(asked) : asked;
    }

    /// Throws `UsageError` when the texts are too long.
    void Run(Context& context) override;

private:
    void CheckTexts() const;

    zam_connector::ZamConnectionParameters parameters_;
    bool waits_ = false;  ///< until the link is up or the server has refused
};

}  // namespace zamctl
