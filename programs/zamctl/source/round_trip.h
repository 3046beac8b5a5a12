#pragma once

#include <chrono>
#include <span>

#include "command.h"
#include "wait_for_state.h"

namespace zamctl {

/// One call of the cheapest operation and the time that it took.
struct RoundTrip {
    StateAnswer answer;
    std::chrono::nanoseconds time;
};

/// Throws `CallFailure`.
RoundTrip TimeRoundTrip(Context& context, const zam_connector::IZamConnController& controller);

/// The smallest time that at least `percent` of 100 of the times do not exceed. `sorted` is
/// ascending and not empty.
std::chrono::nanoseconds Percentile(std::span<const std::chrono::nanoseconds> sorted,
                                    unsigned percent);

/// With the tenths that are printed.
double Microseconds(std::chrono::nanoseconds time);

}  // namespace zamctl
