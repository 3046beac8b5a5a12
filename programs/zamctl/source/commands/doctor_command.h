#pragma once

#include "command.h"

namespace zamctl {

/// Checks what is installed and whether the service can be reached. The report is printed whatever
/// it says; the failure that it ends in comes behind it.
class DoctorCommand final : public Command {
public:
    void Run(Context& context) override;
};

}  // namespace zamctl
