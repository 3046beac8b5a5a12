#include "commands/ping_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "command_set.h"
#include "fast_channel.h"
#include "round_trip.h"
#include "times.h"
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

/// `channel` is about the same calls.
void PrintSummary(Context& context, std::vector<std::chrono::nanoseconds> times,
                  const FastChannelReport& channel) {
    const bool interrupted = context.clock.Interrupted();
    Fields summary = {{"calls", times.size()}, {"interrupted", interrupted}};
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
    summary["fast_channel"] = channel.fields;
    context.output.Result(
        fmt::format("{} {}: min {:.1f} us, p50 {:.1f} us, p99 {:.1f} us, max {:.1f} us\n"
                    "fast channel: {}",
                    times.size(), times.size() == 1 ? "call" : "calls", least, median, high, most,
                    channel.text),
        {{"summary", summary}});
}

}  // namespace

void PingCommand::Declare(Options& options) {
    options.Number(
        "--count", "N", {1, kMaxPingCount}, [this](std::uint64_t value) { count_ = value; },
        fmt::format("Calls to make, default {}", count_));
    options.Number(
        "--interval", "MS", {0, static_cast<std::uint64_t>(kMaxPingInterval.count())},
        [this](std::uint64_t value) { interval_ = std::chrono::milliseconds(value); },
        fmt::format("Pause between calls, default {}", interval_.count()));
}

void PingCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    const auto look = [](ConnectorProvider& from) { return from.FastChannel(); };
    const FastChannelUse before = context.Reach(look);
    context.clock.CatchInterrupt();
    std::vector<std::chrono::nanoseconds> times;
    while (!context.clock.Interrupted()) {
        const RoundTrip trip = TimeRoundTrip(context, connector.controller);
        times.push_back(trip.time);
        PrintCall(context, times.size(), trip);
        if (times.size() >= count_ || !Pause(context, times.size())) {
            break;
        }
    }
    PrintSummary(
        context, std::move(times),
        ReportFastChannel(before, context.Reach(look), context.system, WhyNotThroughMemory()));
}

std::string PingCommand::WhyNotThroughMemory() const {
    return interval_.count() == 0
               ? std::string(kWhatItNeeds)
               : fmt::format("calls {} ms apart are for the socket", interval_.count());
}

bool PingCommand::Pause(Context& context, std::size_t calls) const {
    if (!context.timeout) {
        return context.clock.SleepFor(interval_);
    }
    const std::chrono::nanoseconds left = context.start + *context.timeout - context.clock.Now();
    const bool goesOn = context.clock.SleepFor(std::min<std::chrono::nanoseconds>(interval_, left));
    if (goesOn && interval_ >= left) {
        throw Failure(kExitFailed,
                      fmt::format("made {} of {} calls within {}", calls, count_,
                                  DurationText(*context.timeout)),
                      "Give it more time with --timeout, or ask for fewer calls or a shorter "
                      "--interval.");
    }
    return goesOn;
}

void DeclarePing(CommandSet& commands) {
    commands.Add("ping", "Time round trips to the service", std::make_shared<PingCommand>());
}

}  // namespace zamctl
