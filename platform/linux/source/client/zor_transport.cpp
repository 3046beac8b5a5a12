#include "vd/zor_transport.h"

#include <algorithm>
#include <chrono>
#include <span>

#include "client/call_bounds.h"
#include "client/service_registry.h"
#include "zam_platform/transport_status.h"

namespace {

bool IsFarewell(const VdZorTransport& transport, const vd_message_header& request) {
    return std::any_of(transport.farewells, transport.farewells + transport.farewellCount,
                       [&request](const auto& farewell) {
                           return farewell.riid == request.riid &&
                                  farewell.operation == request.operation;
                       });
}

int Call(VdZorTransport* transport, vd_message_header* request, vd_arena* requestArena,
         vd_message_header* response, vd_arena* responseArena) {
    auto* const link = static_cast<zam_platform::ServiceLink*>(transport->platform);
    if (link == nullptr) {
        return zam_platform::EndCall(zam_platform::kStatusBadTransport);
    }
    return link->Call({.request = request,
                       .requestArena = requestArena,
                       .response = response,
                       .responseArena = responseArena,
                       .timeout = std::chrono::milliseconds(transport->timeoutMs),
                       .farewell = IsFarewell(*transport, *request),
                       .bounds = zam_platform::CallBounds()});
}

constexpr VdZorTransportOps kOperations{&Call};

}  // namespace

void VdZorTransport_Init(VdZorTransport* transport, uint32_t handle, uint32_t timeoutMs,
                         uint32_t flags) {
    *transport = VdZorTransport{};
    transport->ops = &kOperations;
    transport->handle = VD_ZOR_INVALID_HANDLE;
    transport->timeoutMs = timeoutMs;
    transport->flags = flags;
    if (flags == 0) {
        transport->platform = zam_platform::ServiceRegistry::Instance().Find(handle);
    }
    if (transport->platform != nullptr) {
        transport->handle = handle;
    }
}

void VdZorTransport_SetFarewell(VdZorTransport* transport, uint16_t riid, uint16_t operation) {
    const std::span used(transport->farewells, transport->farewellCount);
    const auto same = std::find_if(used.begin(), used.end(),
                                   [riid](const auto& farewell) { return farewell.riid == riid; });
    if (same != used.end()) {
        same->operation = operation;
    } else if (transport->farewellCount < VD_ZOR_MAX_FAREWELLS) {
        transport->farewells[transport->farewellCount++] = {riid, operation};
    }
}
