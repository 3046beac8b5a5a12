#pragma once

#include "command.h"

namespace zamctl {

/// Prints the locales that the server knows.
class LocalesCommand final : public Command {
public:
    void Run(Context& context) override;
};

}  // namespace zamctl
