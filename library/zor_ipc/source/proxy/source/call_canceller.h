#pragma once

#include "qor/mutex.h"
#include "vd/call_bounds.h"

namespace zam_connector::proxy {

/// Ends the calls that are made under it, from any thread: those under way, and those that would
/// begin later. Must outlive every `CallScope` on it. Thread-safe.
class CallCanceller {
public:
    /// Whether channels are still closed when it has ended all else.
    enum class Closes { Allowed, Ended };

    explicit CallCanceller(Closes closes = Closes::Ended) noexcept : closes_(closes) {}
    CallCanceller(const CallCanceller&) = delete;
    CallCanceller& operator=(const CallCanceller&) = delete;
    ~CallCanceller() = default;

    /// There is no way back.
    void Cancel() noexcept QOR_EXCLUDES(mutex_);

    bool IsCancelled() const noexcept QOR_EXCLUDES(mutex_);

    Closes WhatOfCloses() const noexcept { return closes_; }

    /// One call under way, in the hands of whoever makes it.
    struct Entry {
        VdCallUnderWay* call = nullptr;
        Entry* next = nullptr;
        Entry* previous = nullptr;
    };

    /// False when calls are not to be made any more. `entry` is on no list.
    bool Enter(Entry& entry, VdCallUnderWay* call) noexcept QOR_EXCLUDES(mutex_);
    void Leave(Entry& entry) noexcept QOR_EXCLUDES(mutex_);

private:
    const Closes closes_;
    /// Held while calls are interrupted, so that none is left meanwhile.
    mutable qor::Mutex mutex_;
    bool isCancelled_ QOR_GUARDED_BY(mutex_) = false;
    Entry* entries_ QOR_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace zam_connector::proxy
