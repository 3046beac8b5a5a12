#pragma once

#include <string>
#include <vector>

#include "command.h"

namespace zamctl {

/// Prints what result codes mean. Needs no service.
class ExplainCommand final : public Command {
public:
    /// Throws `UsageError` when a text is no result code.
    explicit ExplainCommand(const std::vector<std::string>& codes);

    /// A command that explains every code that has a text.
    static ExplainCommand All();

    void Run(Context& context) override;

private:
    std::vector<int> codes_;
};

}  // namespace zamctl
