#pragma once

#include <stdint.h>

#include "qel/export.h"

/// What bounds the calls that a thread makes: the moment by which they must have ended, and whoever
/// may end them before; and what came of them.

extern "C" {

/// A call under way, as whoever may end it sees it. Owned by the platform.
struct VdCallUnderWay {
    /// Ends the call, which then fails soon. From any thread, any number of times, between the
    /// bounds' `enter` and `leave` for this call; does not block.
    void (*interrupt)(struct VdCallUnderWay* call);
};

/// A transfer that failed on the caller's side, of which the service is to keep nothing.
struct VdFailedTransfer {
    uint16_t riid;       ///< of the endpoint
    uint16_t operation;  ///< that closes the channel; its request begins with the channel's id
    int64_t channel;
};

/// Bounds of a thread's calls. Owned by whoever sets them.
struct VdCallBounds {
    /// On the steady clock (`CLOCK_MONOTONIC`), in nanoseconds; 0 for none. A call that has not
    /// ended by then fails, and its connection is closed; one that begins later is not sent.
    int64_t deadlineNs;

    /// Not 0: the process's time-out does not hold for these calls.
    int32_t withoutDefaultTimeout;

    /// Told of every call before it does anything. 0 when calls are not to be made any more: this
    /// one then fails at once. Null: nobody ends calls.
    /// Both of these are null or neither is.
    int (*enter)(struct VdCallBounds* bounds, struct VdCallUnderWay* call);

    /// Told when a call that was entered has ended; `call` is of no more use then.
    void (*leave)(struct VdCallBounds* bounds, struct VdCallUnderWay* call);

    /// Null for none. The call that closes this channel tells the service so, if the service
    /// understands it.
    const struct VdFailedTransfer* failedTransfer;
};

/// Bounds all calls that the calling thread begins from now on, connecting and looking up included;
/// null for none. Farewells have a time of their own and heed none. Returns what bounded them
/// before. A platform without this notion supplies a function that returns null.
ZAM_API struct VdCallBounds* VdZorTransport_SetCallBounds(struct VdCallBounds* bounds);

/// Longest time, in milliseconds, for each call of this process that begins from now on; 0, which
/// it is at first, for none. Thread-safe. A platform without this notion supplies an empty
/// function.
ZAM_API void VdZorTransport_SetDefaultTimeout(uint32_t timeoutMs);

/// Why a call failed, in the classes that callers tell apart.
enum VdTransportFailure {
    VD_TRANSPORT_OK = 0,
    VD_TRANSPORT_UNAVAILABLE = 1,  ///< no service is there
    VD_TRANSPORT_BROKEN = 2,       ///< it went away, or gave the call up
    VD_TRANSPORT_TIMED_OUT = 3,
    VD_TRANSPORT_UNTRUSTED = 4,  ///< it is not who it should be
    VD_TRANSPORT_REFUSED = 5,    ///< it does not serve this user, or no more of him
    VD_TRANSPORT_TOO_LARGE = 6,  ///< request or answer
    VD_TRANSPORT_PROTOCOL = 7,   ///< one of the two broke the rules
    VD_TRANSPORT_RESOURCES = 8,  ///< this process is out of something
    VD_TRANSPORT_CANCELLED = 9,
    VD_TRANSPORT_OTHER = 10,
};

struct VdTransportStatus {
    enum VdTransportFailure failure;
    const char* text;  ///< for people; valid until the thread's next call of this function
};

/// Where the transport status of the calling thread's last call stands: 0 for a success, and what
/// came of a farewell although that is reported as done. Written by each call at its end,
/// connecting and looking up included; the thread may write it too. Never null.
ZAM_API int32_t* VdZorTransport_LastStatus(void);

/// What a transport status means. Thread-safe.
ZAM_API struct VdTransportStatus VdZorTransport_DescribeStatus(int32_t status);

}  // extern "C"
