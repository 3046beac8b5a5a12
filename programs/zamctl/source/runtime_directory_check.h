#pragma once

#include <string>
#include <vector>

#include "finding.h"
#include "system_view.h"

/// What the library finds of the directory of the services' sockets, in words for people.

namespace zamctl {

/// The choice, the directory and the sockets of the services in it, in this order; what stands on
/// something that is not there is left out.
std::vector<Finding> CheckRuntimeDirectory(const SystemView& system,
                                           const std::vector<std::string>& services);

/// What to do when the service could not be connected to.
std::string ConnectRemedy(const SystemView& system, const std::string& service);

}  // namespace zamctl
