#pragma once

#include <string>
#include <utility>

#include "command.h"

namespace zamctl {

/// Most bytes of an event's text.
inline constexpr std::size_t kMaxEventBytes = 128;

/// Posts an event.
class EventCommand final : public Command {
public:
    /// `text` is the event, or "-" for what stands on the standard input, without the line end
    /// behind it. Throws `UsageError` when it is too long.
    explicit EventCommand(std::string text);

    /// Throws `UsageError` when what the standard input gives is too long.
    void Run(Context& context) override;

private:
    std::string text_;
};

}  // namespace zamctl
