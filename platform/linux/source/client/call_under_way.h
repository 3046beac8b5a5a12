#pragma once

#include "qor/mutex.h"
#include "vd/call_bounds.h"
#include "zam_platform/channel.h"

namespace zam_platform {

/// A call as its bounds know it, from its begin to its end. Used by the thread that makes the call;
/// only the interruption comes from others.
class CallUnderWay final : public VdCallUnderWay {
public:
    /// Enters the call; without bounds that costs nothing.
    explicit CallUnderWay(VdCallBounds* bounds) noexcept;
    CallUnderWay(const CallUnderWay&) = delete;
    CallUnderWay& operator=(const CallUnderWay&) = delete;
    ~CallUnderWay();

    /// Whether others may end the call.
    bool CanBeInterrupted() const noexcept { return entered_; }

    /// Throws `PlatformError` when the call has been ended, or was never to begin.
    void ThrowIfInterrupted() const QOR_EXCLUDES(mutex_);

    /// From now on an interruption ends what `channel` carries. Throws `PlatformError` when it has
    /// come already.
    void Attach(Channel& channel) QOR_EXCLUDES(mutex_);

    /// The channel goes other ways. False when it is of no more use.
    bool Detach() noexcept QOR_EXCLUDES(mutex_);

    /// Whether the call has been ended, or was never to begin.
    bool IsEnded() const noexcept QOR_EXCLUDES(mutex_);

    /// Detaches at the end of its scope.
    class Detacher {
    public:
        explicit Detacher(CallUnderWay& call) noexcept : call_(call) {}
        Detacher(const Detacher&) = delete;
        Detacher& operator=(const Detacher&) = delete;
        ~Detacher() { call_.Detach(); }

    private:
        CallUnderWay& call_;
    };

private:
    static void Interrupt(VdCallUnderWay* call) noexcept;

    VdCallBounds* const bounds_;
    bool entered_ = false;
    bool refused_ = false;
    mutable qor::Mutex mutex_;  // a leaf
    Channel* channel_ QOR_GUARDED_BY(mutex_) = nullptr;
    bool interrupted_ QOR_GUARDED_BY(mutex_) = false;
};

}  // namespace zam_platform
