#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "qx/operation_info.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// One of the nine endpoints. Its interface id is fixed, whether it is served or not, so that ids
/// stay the same across restarts and versions.
struct Endpoint {
    std::string_view interface;  ///< "ConnController"
    std::string_view name;       ///< as clients look it up
    std::string_view shortName;  ///< "connController"
    std::uint16_t riid = 0;
    std::span<const qx::OperationInfo> operations;
};

/// All endpoints, in the order of `qx::kInterfaces`. Static storage.
std::span<const Endpoint> Endpoints() noexcept;

/// The endpoint of an interface of `qx::kInterfaces`.
const Endpoint& EndpointOf(std::string_view interface);

/// By short name or by name; null when there is none.
const Endpoint* FindEndpoint(std::string_view name) noexcept;

/// By name; null when the endpoint has no such operation.
const qx::OperationInfo* FindOperation(const Endpoint& endpoint, std::string_view name) noexcept;

/// What the server checks calls to the endpoint against. The handler is not owned.
zam_platform::EndpointRule RuleOf(const Endpoint& endpoint, zam_platform::EndpointHandler& handler);

}  // namespace zam_service
