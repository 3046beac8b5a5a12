#pragma once

#include <stdint.h>

#include "qel/export.h"

/// What the way to a service can do beyond carrying calls over a socket, and what came of it. The
/// fast channel is the way of a call through memory that a client and a service share.

extern "C" {

struct VdZorTransport;

enum VdTransportFeature {
    /// This platform has been built with the fast channel.
    VD_TRANSPORT_FAST_CHANNEL = 1,
    /// This process uses it where a service offers it: nobody has turned it off here, and two CPUs
    /// or more are online.
    VD_TRANSPORT_FAST_CHANNEL_ON = 2,
    /// The service has told what it offers; `VD_TRANSPORT_FAST_CHANNEL_OFFERED` is known.
    VD_TRANSPORT_FAST_CHANNEL_TOLD = 4,
    /// It offers the fast channel.
    VD_TRANSPORT_FAST_CHANNEL_OFFERED = 8,
    /// This process shares memory with it now.
    VD_TRANSPORT_FAST_CHANNEL_TAKEN = 16,
};

/// What this process and the service behind a transport make of the fast channel, of
/// `VdTransportFeature`: what the service has told on the newest connection that it was asked on.
/// The same for all transports on one handle. Asks the service nothing and does not wait for calls
/// under way. Thread-safe. 0 for a transport without a handle. A platform without a fast channel
/// supplies a function that returns 0.
ZAM_API uint32_t VdZorTransport_Features(const struct VdZorTransport* transport);

/// Of this process's calls to one service, since the process began; a child after `fork` begins
/// anew. Members may be added at the end.
struct VdTransportStatistics {
    uint32_t size;  ///< bytes of this record as the caller, who sets it, knows it
    uint32_t reserved;
    uint64_t calls;        ///< that were answered, with a failure or not
    uint64_t memoryCalls;  ///< those of them whose request was put into shared memory
    uint64_t vainPolls;    ///< looks for an answer in shared memory that ended before it was there
    uint64_t vainPollNs;  ///< what they took, in nanoseconds; CPU time, since a look does not sleep
};

/// Fills the first `statistics->size` bytes of the record, `size` itself excepted; with zeros what
/// this platform does not know, and all of it for a transport without a handle. What calls under
/// way have done is told when they have ended. The same for all transports on one handle.
/// Thread-safe. A platform that does not count fills in zeros.
ZAM_API void VdZorTransport_Statistics(const struct VdZorTransport* transport,
                                       struct VdTransportStatistics* statistics);

}  // extern "C"
