#include "commands/ping_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "round_trip.h"
#include "vocabulary/state_names.h"

namespace zamctl {
namespace {

void PrintCall(Context& context, std::size_t number, const RoundTrip& trip) {
    const std::string state = zam_vocabulary::StateName(trip.answer.state);
    context.output.Detail(
        fmt::format("call {}: {:.1f} us, {}", number, Microseconds(trip.time), state),
        {{"call", number},
         {"round_trip_us", Microseconds(trip.time)},
         {"state", state},
         {"result", trip.answer.code}});
}

void PrintSummary(Context& context, std::vector<std::chrono::nanoseconds> times) {
    const bool interrupted = context.clock.Interrupted();
    Json summary = {{"calls", times.size()}, {"interrupted", interrupted}};
    if (times.empty()) {
        context.output.Result("0 calls", {{"summary", summary}});
        return;
    }
    std::sort(times.begin(), times.end());
    const double least = Microseconds(times.front());
    const double median = Microseconds(Percentile(times, 50));
    const double high = Microseconds(Percentile(times, 99));
    const double most = Microseconds(times.back());
    summary["min_us"] = least;
    summary["p50_us"] = median;
    summary["p99_us"] = high;
    summary["max_us"] = most;
    context.output.Result(
        fmt::format("{} {}: min {:.1f} us, p50 {:.1f} us, p99 {:.1f} us, max {:.1f} us",
                    times.size(), times.size() == 1 ? "call" : "calls", least, median, high, most),
        {{"summary", summary}});
}

}  // namespace

void PingCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    context.clock.CatchInterrupt();
    std::vector<std::chrono::nanoseconds> times;
    while (!context.clock.Interrupted()) {
        const RoundTrip trip = TimeRoundTrip(context, connector.controller);
        times.push_back(trip.time);
        PrintCall(context, times.size(), trip);
        if (times.size() >= options_.count || !context.clock.SleepFor(options_.interval)) {
            break;
        }
    }
    PrintSummary(context, std::move(times));
}

}  // namespace zamctl
