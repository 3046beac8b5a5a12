#pragma once

#include <cstddef>
#include <string>

#include "command.h"

namespace zamctl {

/// Most bytes of an event's text.
inline constexpr std::size_t kMaxEventBytes = 128;

/// Posts an event.
class EventCommand final : public Command {
public:
    void Declare(Options& options) override;

    /// Throws `UsageError` when the text is too long.
    void Run(Context& context) override;

private:
    std::string text_;  ///< "-" for what stands on standard input, without the line end behind it
};

}  // namespace zamctl
