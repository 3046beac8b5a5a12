#pragma once

#include <cstdint>
#include <memory>

#include "vd/zor_transport.h"

namespace zam_connector::proxy {

/// A transport on a service's handle, without a deadline.
inline std::unique_ptr<VdZorTransport> ConnectTransport(std::uint32_t handle) {
    auto transport = std::make_unique<VdZorTransport>();
    VdZorTransport_Init(transport.get(), handle, 0, 0);
    return transport;
}

}  // namespace zam_connector::proxy
