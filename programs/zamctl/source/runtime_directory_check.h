#pragma once

#include <string>
#include <vector>

#include "finding.h"
#include "system_view.h"

/// The rules for the directory of the services' sockets, looked at from outside: nothing here
/// connects to anything.

namespace zamctl {

/// The directory in which the library looks for sockets.
struct RuntimeDirectoryChoice {
    std::string path;
    std::string reason;  ///< the variable that gave it, or that none did
};

/// Chooses as the library does; the path need be neither absolute nor there.
RuntimeDirectoryChoice ChooseRuntimeDirectory(const SystemView& system);

/// The choice, the directory and the sockets of the services in it, in this order; what stands on
/// something that is not there is left out.
std::vector<Finding> CheckRuntimeDirectory(const SystemView& system,
                                           const std::vector<std::string>& services);

/// What to do when the service could not be connected to.
std::string ConnectRemedy(const SystemView& system, const std::string& service);

}  // namespace zamctl
