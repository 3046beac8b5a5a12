#pragma once

#include <string>
#include <vector>

#include "command.h"

namespace zamctl {

/// Prints what result codes mean. Needs no service.
class ExplainCommand final : public Command {
public:
    void Declare(Options& options) override;

    /// Throws `UsageError` when it is to explain neither codes nor all, or both, or
    /// when a text is no code.
    void Run(Context& context) override;

private:
    std::vector<std::string> codes_;
    bool all_ = false;  ///< every code that has a text
};

}  // namespace zamctl
