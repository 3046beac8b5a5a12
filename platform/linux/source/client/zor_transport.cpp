#include "vd/zor_transport.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <span>

#include "client/call_bounds.h"
#include "client/service_registry.h"
#include "shared/cpu_share.h"
#include "vd/transport_features.h"
#include "zam_platform/spin_setting.h"
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

/// Null for a transport without a handle, and for one of somebody else.
zam_platform::ServiceLink* LinkOf(const VdZorTransport& transport) {
    return transport.ops == &kOperations
               ? static_cast<zam_platform::ServiceLink*>(transport.platform)
               : nullptr;
}

uint32_t FeatureIf(bool isThere, VdTransportFeature feature) {
    return isThere ? static_cast<uint32_t>(feature) : 0;
}

bool UsesFastChannel() {
    return zam_platform::ClientSpinCap().count() > 0 &&
           zam_platform::HasCpuForPolling(std::chrono::steady_clock::now());
}

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

uint32_t VdZorTransport_Features(const VdZorTransport* transport) {
    zam_platform::ServiceLink* const link = LinkOf(*transport);
    if (link == nullptr) {
        return 0;
    }
    const zam_platform::ChannelUse use = link->Use().channels;
    const bool isOffered = (use.offers.value_or(0) & zam_platform::kOfferSharedMemory) != 0;
    return FeatureIf(zam_platform::HasFastChannel(), VD_TRANSPORT_FAST_CHANNEL) |
           FeatureIf(UsesFastChannel(), VD_TRANSPORT_FAST_CHANNEL_ON) |
           FeatureIf(use.offers.has_value(), VD_TRANSPORT_FAST_CHANNEL_TOLD) |
           FeatureIf(isOffered, VD_TRANSPORT_FAST_CHANNEL_OFFERED) |
           FeatureIf(use.hasMemory, VD_TRANSPORT_FAST_CHANNEL_TAKEN);
}

void VdZorTransport_Statistics(const VdZorTransport* transport, VdTransportStatistics* statistics) {
    const uint32_t size = statistics->size;
    VdTransportStatistics filled{};
    if (zam_platform::ServiceLink* const link = LinkOf(*transport)) {
        const zam_platform::LinkUse use = link->Use();
        filled.calls = use.calls;
        filled.memoryCalls = use.channels.memoryCalls;
        filled.vainPolls = use.channels.vainPolls;
        filled.vainPollNs = static_cast<uint64_t>(use.channels.vainTime.count());
    }
    filled.size = size;
    // A caller of another version knows a record of another size.
    const std::size_t known = std::min<std::size_t>(size, sizeof(filled));
    std::memcpy(statistics, &filled, known);
    std::memset(reinterpret_cast<unsigned char*>(statistics) + known, 0, size - known);
}
