#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "command.h"

namespace zamctl {

/// Most calls of one ping; their times are kept for the summary.
inline constexpr std::size_t kMaxPingCount = 1'000'000;

inline constexpr std::chrono::milliseconds kMaxPingInterval{3'600'000};

/// Times round trips to the service: one line for each as it comes, and a summary, also when
/// interrupted, with what they made of the fast channel. A failing call and the end of its time end
/// it without a summary, behind the lines already printed.
class PingCommand final : public Command {
public:
    void Declare(Options& options) override;
    void Run(Context& context) override;

private:
    /// Between two calls, of which `calls` have been made. False when it was interrupted. Throws
    /// `Failure` when the command's time ends in it.
    bool Pause(Context& context, std::size_t calls) const;

    /// What calls at this interval are to the fast channel.
    std::string WhyNotThroughMemory() const;

    std::size_t count_ = 10;
    std::chrono::milliseconds interval_{100};  ///< between the end of a call and the next
};

}  // namespace zamctl
