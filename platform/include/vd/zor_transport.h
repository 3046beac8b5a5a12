#pragma once

#include <stdint.h>

#include "qel/export.h"
#include "vd/arena.h"

/// The client half of the system's IPC: one blocking request/response exchange.

extern "C" {

struct VdZorTransport;

/// The handle that stands for "none".
#define VD_ZOR_INVALID_HANDLE UINT32_C(0xFFFFFFFF)

/// Most operations of one transport that can be marked as farewells. The library needs two, one
/// for each notifier.
#define VD_ZOR_MAX_FAREWELLS 4

/// What a transport can do.
struct VdZorTransportOps {
    /// Sends `request` (its fixed part, whose size is in its header, and the bytes in use of
    /// `requestArena`) and waits for the answer, which overwrites `response` and fills
    /// `responseArena`. An arena that the operation does not need is null. Both messages begin
    /// with a header that the operation stub has filled, and are 8-aligned.
    ///
    /// Returns the transport status: 0 on success, else a number of the platform's own; after a
    /// failure the response and its arena hold nothing of use. Blocks until the answer is there or
    /// the exchange has failed. May be called from any number of threads at once.
    int (*call)(struct VdZorTransport* transport, struct vd_message_header* request,
                struct vd_arena* requestArena, struct vd_message_header* response,
                struct vd_arena* responseArena);
};

/// One client's way to one service. Owned by whoever made it; must outlive every IDL proxy record
/// that refers to it. Holds nothing that needs to be released.
struct VdZorTransport {
    const struct VdZorTransportOps* ops;
    uint32_t handle;
    uint32_t timeoutMs;
    uint32_t flags;
    uint32_t farewellCount;  ///< entries of `farewells` in use
    struct {
        uint16_t riid;
        uint16_t operation;
    } farewells[VD_ZOR_MAX_FAREWELLS];
    void* platform;  ///< the platform's own state of the handle; not owned
};

/// Makes `transport` usable on a handle of `ServiceLocatorConnect`. `timeoutMs` bounds one call in
/// milliseconds, 0 for no bound; `flags` must be 0. Always sets `ops`; `handle` is left all-ones,
/// and every call then fails, when the handle is no good or a flag is not known.
ZAM_API void VdZorTransport_Init(struct VdZorTransport* transport, uint32_t handle,
                                 uint32_t timeoutMs, uint32_t flags);

/// Marks an operation that only ends something at the peer: the platform tries it for a bounded
/// time and reports it as done with a zero-filled response, whatever came of it. What it would have
/// ended went with the peer, or the peer is told later; `VdCallBounds::lastStatus` says what
/// happened. An interface has one farewell: a second call for the same riid replaces its operation.
/// What exceeds `VD_ZOR_MAX_FAREWELLS` interfaces is not marked. To be called before the transport
/// is shared between threads. A platform without this notion supplies an empty function.
ZAM_API void VdZorTransport_SetFarewell(struct VdZorTransport* transport, uint16_t riid,
                                        uint16_t operation);

}  // extern "C"
