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
    if (plan_.refuseAfter) {
        Begin({{ZamConnectorState::Connecting, milliseconds(0)},
               {ZamConnectorState::Refused, *plan_.refuseAfter}},
              {}, now);
    } else {
        Begin(plan_.start,
              plan_.flap ? FlapSteps(*plan_.flap, plan_.start) : std::vector<LinkStep>(), now);
    }
    isUp_ = true;
}

void LinkSimulator::Stop(TimePoint now) {
    Begin(plan_.stop, {}, now);
    isUp_ = false;
}

std::optional<ZamConnectorState> LinkSimulator::Advance(TimePoint now) noexcept {
    while (due_ && *due_ <= now) {
        const ZamConnectorState entered = Steps()[next_++].state;
        if (next_ == Steps().size()) {
            isRepeating_ = true;
            next_ = 0;
        }
        // Delays count from now, not from when the step was due: a process that was halted for an
        // hour does not go through an hour of changes at once.
        Schedule(now);
        if (std::exchange(state_, entered) != entered) {
            return entered;
        }
    }
    return std::nullopt;
}

void LinkSimulator::Begin(std::vector<LinkStep> steps, std::vector<LinkStep> repeat,
                          TimePoint now) noexcept {
    steps_ = std::move(steps);
    repeat_ = std::move(repeat);
    isRepeating_ = false;
    next_ = 0;
    Schedule(now);
}

void LinkSimulator::Schedule(TimePoint now) noexcept {
    due_ = next_ < Steps().size() ? std::optional(now + Steps()[next_].after) : std::nullopt;
}

}  // namespace zam_service
