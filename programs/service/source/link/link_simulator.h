#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

#include "link/connection_plan.h"

namespace zam_service {

/// The simulated link to the server: a state machine that is told the time. No I/O, no clock, no
/// timer. One thread at a time.
class LinkSimulator {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// The plan of starts and stops to come; the one under way keeps its own.
    void SetPlan(ConnectionPlan plan) { plan_ = std::move(plan); }
    const ConnectionPlan& Plan() const noexcept { return plan_; }

    zam_connector::ZamConnectorState State() const noexcept { return state_; }

    /// True from `Start` to `Stop`, or until the server has turned the device away for good.
    bool IsStarted() const noexcept;

    /// True when there is nothing to stop: before the first `Start` and from `Stop` on.
    bool IsDown() const noexcept { return !isUp_; }

    /// Begins the plan's start steps, whatever is under way. The first may be due at once:
    /// `Advance` follows. What throws `std::bad_alloc` changes nothing.
    void Start(TimePoint now);

    /// The same for the stop steps.
    void Stop(TimePoint now);

    /// Takes the steps that are due up to the next change of state, and returns that; empty when
    /// nothing more is due.
    std::optional<zam_connector::ZamConnectorState> Advance(TimePoint now) noexcept;

    /// When the next step is due; empty when nothing will happen by itself.
    std::optional<TimePoint> NextStep() const noexcept { return due_; }

private:
    void Begin(std::vector<LinkStep> steps, std::vector<LinkStep> repeat, TimePoint now) noexcept;
    void Schedule(TimePoint now) noexcept;
    const std::vector<LinkStep>& Steps() const noexcept { return isRepeating_ ? repeat_ : steps_; }

    ConnectionPlan plan_;
    std::vector<LinkStep> steps_;
    std::vector<LinkStep> repeat_;  ///< follow when those have ended; empty for none
    bool isRepeating_ = false;
    std::size_t next_ = 0;
    std::optional<TimePoint> due_;
    zam_connector::ZamConnectorState state_ = zam_connector::ZamConnectorState::Stopped;
    bool isUp_ = false;
};

}  // namespace zam_service
