#pragma once

#include <limits>
#include <vector>

#include "qor/mutex.h"
#include "vd/call_bounds.h"

namespace zam_connector::proxy {

/// Ends the calls that are made under it, from any thread: those under way, and those that would
/// begin later. Must outlive every `CallScope` on it. Thread-safe.
class CallCanceller {
public:
    /// Throws `std::bad_alloc`.
    CallCanceller() { calls_.reserve(1); }  // a thread makes one call at a time
    CallCanceller(const CallCanceller&) = delete;
    CallCanceller& operator=(const CallCanceller&) = delete;
    ~CallCanceller() = default;

    /// There is no way back.
    void Cancel() noexcept QOR_EXCLUDES(mutex_);

    bool IsCancelled() const noexcept QOR_EXCLUDES(mutex_);

private:
    friend class CallScope;

    /// False when calls are not to be made any more.
    bool Enter(VdCallUnderWay* call) noexcept QOR_EXCLUDES(mutex_);
    void Leave(VdCallUnderWay* call) noexcept QOR_EXCLUDES(mutex_);

    /// Held while calls are interrupted, so that none is left meanwhile.
    mutable qor::Mutex mutex_;
    bool isCancelled_ QOR_GUARDED_BY(mutex_) = false;
    std::vector<VdCallUnderWay*> calls_ QOR_GUARDED_BY(mutex_);
};

/// Bounds the calls that the calling thread makes while this object lives, besides what bounds them
/// already. To be destroyed on its thread, in the reverse order.
class CallScope {
public:
    /// Under a canceller, or, with null, only to learn how the calls ended.
    explicit CallScope(CallCanceller* canceller) noexcept;
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;
    ~CallScope();

    /// Transport status of the thread's last call since this object was made: 0 for success and
    /// where there was none. A farewell that is reported as done tells here what came of it.
    int LastStatus() const noexcept {
        return bounds_.lastStatus == kNoCall ? 0 : bounds_.lastStatus;
    }

private:
    /// No transport status.
    static constexpr int kNoCall = std::numeric_limits<int>::min();

    struct Bounds : VdCallBounds {
        CallCanceller* canceller;
        VdCallBounds* outer;
    };

    static int Enter(VdCallBounds* bounds, VdCallUnderWay* call) noexcept;
    static void Leave(VdCallBounds* bounds, VdCallUnderWay* call) noexcept;

    Bounds bounds_;
};

}  // namespace zam_connector::proxy
