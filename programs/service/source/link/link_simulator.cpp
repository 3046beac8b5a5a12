#include "link/link_simulator.h"

#include <utility>

namespace zam_service {
namespace {

using std::chrono::milliseconds;
using zam_connector::ZamConnectorState;

/// From connected to connected again.
std::vector<LinkStep> FlapSteps(const FlapPlan& flap, std::vector<LinkStep> start) {
    start.front().after += flap.down;
    start.insert(start.begin(), {ZamConnectorState::WaitingForReconnect, flap.up});
    return start;
}

}  // namespace

bool LinkSimulator::IsStarted() const noexcept {
    return isUp_ && (state_ != ZamConnectorState::Refused || due_.has_value());
}

void LinkSimulator::Start(TimePoint now) {
    isUp_ = true;
    repeat_.clear();
    if (plan_.refuseAfter) {
        Begin({{ZamConnectorState::Connecting, milliseconds(0)},
               {ZamConnectorState::Refused, *plan_.refuseAfter}},
              now);
        return;
    }
    if (plan_.flap) {
        repeat_ = FlapSteps(*plan_.flap, plan_.start);
    }
    Begin(plan_.start, now);
}

void LinkSimulator::Stop(TimePoint now) {
    isUp_ = false;
    repeat_.clear();
    Begin(plan_.stop, now);
}

std::vector<ZamConnectorState> LinkSimulator::Advance(TimePoint now) {
    std::vector<ZamConnectorState> changes;
    while (due_ && *due_ <= now) {
        const ZamConnectorState entered = steps_[next_++].state;
        if (entered != state_) {
            state_ = entered;
            changes.push_back(entered);
        }
        if (next_ == steps_.size()) {
            steps_ = repeat_;
            next_ = 0;
        }
        // Delays count from now, not from when the step was due: a process that was halted for an
        // hour does not go through an hour of changes at once.
        Schedule(now);
    }
    return changes;
}

void LinkSimulator::Begin(std::vector<LinkStep> steps, TimePoint now) {
    steps_ = std::move(steps);
    next_ = 0;
    Schedule(now);
}

void LinkSimulator::Schedule(TimePoint now) {
    due_ = next_ < steps_.size() ? std::optional(now + steps_[next_].after) : std::nullopt;
}

}  // namespace zam_service
