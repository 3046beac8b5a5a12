#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "connector_provider.h"

/// Asks the system's service locator which endpoints are there, and the transport how calls go. The
/// connector is made as a whole or not at all, so this alone can tell which of its endpoints is
/// missing: it is the one place that looks behind the public interfaces.

namespace zamctl {

/// The services that a connector is made over, the connector service first.
std::vector<std::string> ConnectorServices();

/// Every endpoint that a connector needs of that service. Throws `UnreachableService`
/// and `SilentService`.
std::vector<EndpointReport> ProbeEndpoints(const std::string& service);

/// The handle of a service, which is connected to. Throws `UnreachableService` and
/// `SilentService`.
std::uint32_t HandleOf(const std::string& service);

/// What the calls of this process on a handle make of the fast channel.
FastChannelUse ProbeFastChannel(std::uint32_t handle);

}  // namespace zamctl
