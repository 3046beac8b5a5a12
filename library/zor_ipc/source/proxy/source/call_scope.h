#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "call_canceller.h"
#include "vd/call_bounds.h"

namespace zam_connector::proxy {

using CallTime = std::chrono::steady_clock::time_point;

/// Longest time that making a connector takes until the services have answered who they are, and
/// that a registration for notices takes: a service that answers neither has stopped working.
inline constexpr std::chrono::seconds kSetUpTimeout{10};

/// Time that closing a channel has whatever bounds the calls before it.
inline constexpr std::chrono::milliseconds kCloseTimeout{750};

/// Bounds the calls that the calling thread makes while this object lives, besides what bounds them
/// already. To be destroyed on its thread, in the reverse order. A child after `fork` begins
/// without any: those of its parent bound nothing there.
class CallScope {
public:
    /// Whether the process's time-out holds for the calls; `Inherited`: as outside of this scope.
    enum class DefaultTimeout { Inherited, On, Off };

    struct Bounds {
        CallCanceller* canceller = nullptr;
        std::optional<CallTime> deadline =
            {};  ///< the earlier of it and of what is around it holds
        DefaultTimeout defaultTimeout = DefaultTimeout::Inherited;
    };

    explicit CallScope(const Bounds& bounds) noexcept;
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;
    ~CallScope();

protected:
    struct Links : VdCallBounds {
        CallCanceller* canceller;
        CallCanceller::Entry entry;  ///< of the thread's one call, on the canceller's list
        int calls;                   ///< of the thread under way: one, or a logger's inside it
        VdCallBounds* outer;
        CallScope* outerScope;
        unsigned process;  ///< a child after a fork is another one
    };

    static int Enter(VdCallBounds* bounds, VdCallUnderWay* call) noexcept;
    static void Leave(VdCallBounds* bounds, VdCallUnderWay* call) noexcept;

    /// Whether a canceller of this kind, here or around, has cancelled the calls.
    bool IsCancelled(CallCanceller::Closes closes) const noexcept;

    Links links_;
};

/// The calls of one of the library's own threads, which wait for hours.
class LibraryThreadScope : public CallScope {
public:
    explicit LibraryThreadScope(CallCanceller* canceller) noexcept
        : CallScope({.canceller = canceller, .defaultTimeout = DefaultTimeout::Off}) {}
};

/// The calls of an observer, which are an application's own wherever it is called.
class ObserverScope : public CallScope {
public:
    ObserverScope() noexcept : CallScope({.defaultTimeout = DefaultTimeout::On}) {}
};

/// Calls that are made once, before anything else can go on.
class SetUpScope : public CallScope {
public:
    SetUpScope() noexcept
        : CallScope({.deadline = std::chrono::steady_clock::now() + kSetUpTimeout}) {}
};

/// The close of a channel: it has `kCloseTimeout` at least, whatever deadline has passed and
/// whoever has cancelled the calls before it or cancels this one, or the channel would stay open
/// for as long as the process lives. Without bounds it has none either. On a library thread whose
/// service could not be told of its end it is not tried.
class ChannelCloseScope : public CallScope {
public:
    ChannelCloseScope() noexcept;
    /// The transfer has failed: the service is to drop what it got of it.
    explicit ChannelCloseScope(const VdFailedTransfer& failed) noexcept;

    /// Makes the call that closes the channel, which gives a result code. When that was cancelled
    /// meanwhile it is made once more, where nobody can cancel it. Returns the code of the first
    /// one unless the second succeeds. What `call` throws goes through.
    template <typename Call>
    int Close(Call&& call) {
        const int code = call();
        if (code >= 0 || !WasCancelled()) {
            return code;
        }
        const std::int32_t status = *VdZorTransport_LastStatus();
        LeaveCancellers();
        const int again = call();
        if (again >= 0) {
            return again;
        }
        // The first may have been done before it was ended: the second says nothing then.
        *VdZorTransport_LastStatus() = status;
        return code;
    }

    /// The thread's last status becomes that of what failed before the close, unless the close
    /// failed as well.
    ~ChannelCloseScope();

private:
    /// Whether the call that failed was one that somebody could cancel, and did.
    bool WasCancelled() const noexcept;

    /// From now on there is `kCloseTimeout`, and nobody to end it before.
    void LeaveCancellers() noexcept;

    const std::int32_t statusBefore_;
    VdFailedTransfer failed_;
};

/// The process's time-out for a call.
void SetDefaultTimeout(std::chrono::milliseconds timeout) noexcept;

/// Takes the time-out from the environment, the first time only, unless it has been set.
void ReadDefaultTimeout() noexcept;

}  // namespace zam_connector::proxy
