#include "round_trip.h"

#include <cmath>

namespace zamctl {

RoundTrip TimeRoundTrip(Context& context, const zam_connector::IZamConnController& controller) {
    const Clock::TimePoint start = context.clock.Now();
    const StateAnswer answer = AskState(context, controller);
    return {answer, context.clock.Now() - start};
}

std::chrono::nanoseconds Percentile(std::span<const std::chrono::nanoseconds> sorted,
                                    unsigned percent) {
    // The nearest rank: a time that was measured, not one between two.
    const std::size_t rank = (sorted.size() * percent + 99) / 100;
    return sorted[rank == 0 ? 0 : rank - 1];
}

double Microseconds(std::chrono::nanoseconds time) {
    const double tenths = std::round(std::chrono::duration<double, std::micro>(time).count() * 10);
    return tenths / 10;
}

}  // namespace zamctl
