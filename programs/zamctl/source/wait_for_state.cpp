#include "wait_for_state.h"

#include <fmt/format.h>

#include <algorithm>

#include "values.h"
#include "vocabulary/state_names.h"

namespace zamctl {
namespace {

std::string ShowSeconds(std::chrono::milliseconds time) {
    return fmt::format("{:g} s", std::chrono::duration<double>(time).count());
}

}  // namespace

std::chrono::milliseconds LimitOfWait(std::optional<std::chrono::milliseconds> asked) {
    return asked.value_or(kDefaultTimeout) + kGrace;
}

StateAnswer AskState(Context& context, const zam_connector::IZamConnController& controller) {
    zam_connector::ZamConnectorState state{};
    const int code = context.Checked("read the state", [&] { return controller.GetState(state); });
    return {state, code};
}

StateAnswer WaitForState(Context& context, const zam_connector::IZamConnController& controller,
                         const Wait& wait) {
    // Asked, not observed: the state may have been reached before an observer is told of anything.
    const std::chrono::milliseconds timeout = context.timeout.value_or(kDefaultTimeout);
    const Clock::TimePoint end = context.start + timeout;
    for (;;) {
        const StateAnswer answer = AskState(context, controller);
        if (answer.state == wait.target) {
            return answer;
        }
        if (answer.state == wait.hopeless) {
            throw Failure(kExitFailed,
                          fmt::format("the state is {} and will not become {}",
                                      zam_vocabulary::StateName(answer.state),
                                      zam_vocabulary::StateName(wait.target)),
                          "The server turned this device away; check the server's address and "
                          "the product and device names.");
        }
        const std::chrono::nanoseconds left = end - context.clock.Now();
        if (left <= std::chrono::nanoseconds::zero()) {
            throw Failure(
                kExitFailed,
                fmt::format("the state is {}, not {}, after {}",
                            zam_vocabulary::StateName(answer.state),
                            zam_vocabulary::StateName(wait.target), ShowSeconds(timeout)),
                "Give it more time with --timeout, or look into the log of zam_connectord.");
        }
        context.clock.SleepFor(std::min<std::chrono::nanoseconds>(left, kPollInterval));
    }
}

}  // namespace zamctl
