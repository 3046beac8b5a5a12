#pragma once

#include <stdint.h>

#include "qel/export.h"

/// What bounds the calls that one thread makes: the moment by which they must have ended, and
/// whoever may end them before.

extern "C" {

/// A call under way, as whoever may end it sees it. Owned by the platform.
struct VdCallUnderWay {
    /// Ends the call, which then fails soon. From any thread, any number of times, between the
    /// bounds' `enter` and `leave` for this call; does not block.
    void (*interrupt)(struct VdCallUnderWay* call);
};

/// Bounds of a thread's calls. Owned by whoever sets them.
struct VdCallBounds {
    /// On the steady clock (`CLOCK_MONOTONIC`), in nanoseconds; 0 for none. A call that has not
    /// ended by then fails, and its connection is closed.
    int64_t deadlineNs;

    /// Told of every call before it does anything. 0 when calls are not to be made any more: this
    /// one then fails at once. Null: nobody ends calls.
    /// Both of these are null or neither is.
    int (*enter)(struct VdCallBounds* bounds, struct VdCallUnderWay* call);

    /// Told when a call that was entered has ended; `call` is of no more use then.
    void (*leave)(struct VdCallBounds* bounds, struct VdCallUnderWay* call);

    /// Written by each call of an operation at its end: 0, or the transport status of what failed,
    /// also where the failure is not returned because the call was a farewell.
    int32_t lastStatus;
};

/// Bounds all calls that the calling thread begins from now on; null for none. Returns what bounded
/// them before. A platform without this notion supplies a function that returns null.
ZAM_API struct VdCallBounds* VdZorTransport_SetCallBounds(struct VdCallBounds* bounds);

}  // extern "C"
