#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "qel/export.h"
#include "qor/utils/event.h"

namespace qor::utils {

/// Tells work whether it may go on. Every operation that returns an `int` returns a result code.
/// Thread-safe.
class ZAM_API ICancellationToken {
public:
    enum class ExecutionAction : std::int32_t {
        Continue = 0,
        Pause = 1,
        Cancel = 2,
    };

    virtual ~ICancellationToken() = default;

    /// Writes what the work is to do now. Never blocks; returns 0.
    virtual int GetExecutionAction(ExecutionAction& action) const = 0;

    /// Waits until something is told, at most for `timeout`, and writes what the work is to do.
    /// Returns 0 when something was told, 1 when the time ran out. What is told ends one wait.
    virtual int GetExecutionAction(ExecutionAction& action,
                                   std::chrono::milliseconds timeout) const = 0;

    /// Both return 0.
    virtual int Pause() = 0;
    virtual int Resume() = 0;

    virtual bool IsPaused() const = 0;
    virtual bool IsCanceled() const = 0;
};

/// The token of the notification threads. The state is written before waiters are woken, and
/// reading it takes no lock.
class ZAM_API CancellationToken final : public ICancellationToken {
public:
    explicit CancellationToken(ExecutionAction state = ExecutionAction::Continue) noexcept;
    ~CancellationToken() override;

    int GetExecutionAction(ExecutionAction& action) const override;
    int GetExecutionAction(ExecutionAction& action,
                           std::chrono::milliseconds timeout) const override;
    int Pause() override;
    int Resume() override;
    bool IsPaused() const override;
    bool IsCanceled() const override;

    void Cancel();

    /// True while the work may go on.
    bool IsContinued() const noexcept { return state_ == ExecutionAction::Continue; }

private:
    void Tell(ExecutionAction state);

    mutable Event event_{true};
    std::atomic<ExecutionAction> state_;
};

}  // namespace qor::utils
