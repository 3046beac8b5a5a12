#pragma once

#include <cstdint>
#include <string>

/// Connecting to services and endpoints. These functions throw; they run while a connector is
/// being assembled, on the thread that assembles it, and may block in the service locator.

namespace zam_connector::proxy::init {

/// The handle of the service of that name. Throws `qel::CheckFailedException` when the name is
/// empty (before the service locator is asked) or no handle was received.
std::uint32_t ConnectIpcService(const std::string& serviceName);

/// The interface id of an endpoint of the service behind `handle`. Throws
/// `qel::CheckFailedException` when the service has no such endpoint.
std::uint16_t GetEndpointRiid(std::uint32_t handle, const std::string& endpointName);

}  // namespace zam_connector::proxy::init
