#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "qel/export.h"

/// How long calls may take, who may end them, and why one failed. `docs/deadlines.md` tells how
/// these play together. Calls without any of them have no bound: they take as long as the service
/// does.

namespace zam_connector {

namespace proxy {
class CallCanceller;
}

namespace detail {

/// Room for what the library keeps of a scope. Neither copied nor moved: calls refer to it.
class CallScopeRoom {
public:
    CallScopeRoom(const CallScopeRoom&) = delete;
    CallScopeRoom& operator=(const CallScopeRoom&) = delete;

protected:
    CallScopeRoom() = default;
    ~CallScopeRoom() = default;

    alignas(8) std::array<std::byte, 128> room_;
};

}  // namespace detail

/// A moment by which the calls must have ended that the constructing thread makes while this object
/// lives. It is one moment for all of them, so that an operation of many exchanges (a pulled
/// policy, an upload) ends in time as a whole. Inside another one the earlier moment holds.
///
/// A call that runs out of time returns 0x8000004B like every transport failure, with
/// `TransportFailure::TimedOut` in `LastTransportStatus`; its connection is closed, and the service
/// may have done what it was asked, or may still do it. A call that begins too late is not made.
/// Closing a channel is tried for 0.75 s all the same, so that none stays open; ends of
/// subscriptions have 0.75 s of their own.
///
/// To be destroyed on the thread that made it, in the reverse order. Costs each call a look at the
/// clock; a system call more the first time that a connection waits under a deadline, when less
/// time is left than it was told before, or far more, and with less than 20 ms left.
class CallDeadline final : private detail::CallScopeRoom {
public:
    /// `within` from now; what has passed already makes every call fail.
    ZAM_API explicit CallDeadline(std::chrono::nanoseconds within) noexcept;
    ZAM_API explicit CallDeadline(std::chrono::steady_clock::time_point at) noexcept;
    ZAM_API ~CallDeadline();
};

/// Longest time for each exchange with the service that this process makes from now on, of 1 ms to
/// 24.8 days (2^31 - 1 ms), to which others are moved; 0, which it is at first, for none. The
/// library's own threads are exempt, as are ends of subscriptions; the calls that an observer makes
/// are not. Closing a channel has 0.75 s at least. Thread-safe.
///
/// The environment variable ZAM_CALL_TIMEOUT_MS sets it for a process that does not: it is read
/// once, before the first connector or downloader is made, but not in a set-user-id program. What
/// is no number of 0 to 2147483647 is logged and changes nothing.
ZAM_API void SetDefaultCallTimeout(std::chrono::milliseconds timeout) noexcept;

/// Ends calls from another thread. Thread-safe.
class Canceller {
public:
    /// Throws `std::bad_alloc`.
    ZAM_API Canceller();
    Canceller(const Canceller&) = delete;
    Canceller& operator=(const Canceller&) = delete;
    /// Cancels nothing; calls under way go on, and nobody can end them any more.
    ZAM_API ~Canceller();

    /// Ends the calls under way that were made under it, and has all later ones fail at once: they
    /// return 0x8000004B, with `TransportFailure::Cancelled` in `LastTransportStatus`. Closing a
    /// channel behind it is tried for 0.75 s. There is no way back. Does not block.
    ZAM_API void Cancel() noexcept;

    ZAM_API bool IsCancelled() const noexcept;

    /// Puts the calls that the constructing thread makes while this object lives under the
    /// canceller, besides those that they are under already. Any number of threads may be under one
    /// canceller. To be destroyed on its thread, in the reverse order.
    class Scope final : private detail::CallScopeRoom {
    public:
        ZAM_API explicit Scope(const Canceller& canceller) noexcept;
        ZAM_API ~Scope();

    private:
        std::shared_ptr<proxy::CallCanceller> canceller_;
    };

private:
    std::shared_ptr<proxy::CallCanceller> canceller_;
};

/// Why a call failed on its way, in the classes that a program acts upon.
enum class TransportFailure : std::int32_t {
    None = 0,         ///< it did not: what failed, if anything did, is what the code says
    Unavailable = 1,  ///< no service is there
    Broken = 2,       ///< the service went away, or gave the call up
    TimedOut = 3,     ///< a deadline or time-out passed
    Untrusted = 4,    ///< the service's directory, socket or process failed a check
    Refused = 5,      ///< the service does not serve this user, or no more of him
    TooLarge = 6,     ///< the request or the answer
    Protocol = 7,     ///< one of the two broke the rules
    Resources = 8,    ///< this process is out of descriptors or memory
    Cancelled = 9,    ///< by a `Canceller`
    Other = 10,       ///< a number that the platform does not know
};

struct TransportStatus {
    TransportFailure failure = TransportFailure::None;
    std::int32_t number = 0;  ///< the platform's own, as in log records
    /// For people; null when there was no failure. Valid until the thread asks again.
    const char* text = nullptr;
};

/// What the transport came to in the calling thread's last operation: no failure after a success,
/// and when the operation failed for another reason. Creating a connector is an operation, too.
ZAM_API TransportStatus LastTransportStatus() noexcept;

}  // namespace zam_connector
