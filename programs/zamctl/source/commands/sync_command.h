#pragma once

#include "command.h"

namespace zamctl {

/// Schedules a synchronisation with the server.
class SyncCommand final : public Command {
public:
    void Run(Context& context) override;
};

}  // namespace zamctl
