#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "call_cell.h"
#include "call_sides.h"
#include "computing.h"
#include "paired_ratios.h"
#include "process.h"
#include "suites.h"

namespace zam_bench {
namespace {

constexpr char kName[] = "call.channel";

/// With 8 ratios one disturbed round changes no verdict; as many begin with the one side as with
/// the other.
constexpr int kRounds = 8;
constexpr std::size_t kMostCalls = 10'000;
/// Fewer would make the share of the first, cold one too large.
constexpr std::size_t kFewestCalls = 40;
/// A round's time: the whole grid is to take some 20 minutes, a selection may take longer for each
/// of its cells.
constexpr double kGridMicroseconds = 1100e6;
constexpr double kLongestRoundMicroseconds = 2e6;
constexpr double kTrialMicroseconds = 20e3;

/// What is measured of a cell, and how far it may lie above the socket's.
struct Figure {
    const char* name;
    double CallCost::*cost;
    double limit;
};
constexpr std::array<Figure, 3> kFigures = {
    {{"p50", &CallCost::p50, 1.1}, {"p99", &CallCost::p99, 1.25}, {"cpu", &CallCost::cpu, 1.1}}};

/// The rounds of a cell, in turns.
struct Rounds {
    std::vector<CallCost> free;
    std::vector<CallCost> socket;
};

std::vector<double> Series(const std::vector<CallCost>& rounds, const Figure& figure) {
    std::vector<double> values;
    values.reserve(rounds.size());
    for (const CallCost& cost : rounds) {
        values.push_back(cost.*figure.cost);
    }
    return values;
}

double BoundOf(const Rounds& rounds, const Figure& figure) {
    return LowerBound(PairedRatios(Series(rounds.free, figure), Series(rounds.socket, figure)));
}

/// Calls that fit into a round.
std::size_t CallsOfRound(const CallCell& cell, CallSides& free, CallSides& socket,
                         double microseconds) {
    const auto atLeast = static_cast<double>((cell.think + cell.handler).count()) + 10;
    const auto trial = std::max<std::size_t>(static_cast<std::size_t>(kTrialMicroseconds / atLeast),
                                             static_cast<std::size_t>(cell.clients));
    const double longest = std::max(free.Run(trial), socket.Run(trial));
    const double calls = microseconds / longest * static_cast<double>(trial);
    return std::clamp(static_cast<std::size_t>(calls), kFewestCalls, kMostCalls);
}

/// The one that computes beside them runs where the service does: there one that waits awake takes
/// time that somebody else wants. Unpinned, the scheduler moves it about.
Rounds MeasureCell(const CallCell& cell, double microseconds) {
    std::optional<Child> busy;
    if (cell.busy != 0) {
        busy.emplace([] { ComputeForever(); });
        Pin(busy->Pid(), cell.placement.server);
    }
    CallSides free(cell, Way::Free);
    CallSides socket(cell, Way::Socket);
    const std::size_t calls = CallsOfRound(cell, free, socket, microseconds);
    Rounds rounds;
    for (int round = 0; round < kRounds; ++round) {
        if (round % 2 == 0) {
            rounds.free.push_back(free.Round(calls));
            rounds.socket.push_back(socket.Round(calls));
        } else {
            rounds.socket.push_back(socket.Round(calls));
            rounds.free.push_back(free.Round(calls));
        }
    }
    return rounds;
}

/// Judges the cells, and keeps for each figure the one with the highest bound.
class Judge {
public:
    explicit Judge(Report& report) : report_(report) {}

    /// Measures a cell again that exceeds a limit: one of twenty may do so by chance.
    void Measure(const CallCell& cell, double microseconds) {
        const std::string name = cell.Name();
        const Rounds first = MeasureCell(cell, microseconds);
        std::optional<Rounds> second;
        for (std::size_t index = 0; index < kFigures.size(); ++index) {
            const Figure& figure = kFigures[index];
            const std::string metric = name + "." + figure.name;
            report_.Add(Compared(kName, metric, "us", Series(first.free, figure),
                                 Series(first.socket, figure)));
            if (!report_.Wants(std::string(kName) + "." + metric)) {
                continue;
            }
            double bound = BoundOf(first, figure);
            if (bound > figure.limit) {
                second = second ? second : MeasureCell(cell, microseconds);
                const double again = BoundOf(*second, figure);
                Tell(metric, figure, bound, again);
                bound = std::min(bound, again);
            }
            ++figures_;
            if (bound > worst_.at(index).bound) {
                worst_.at(index) = {bound, metric};
            }
        }
    }

    void Conclude() {
        report_.AddNote(
            fmt::format("{}: {} of {} figures exceed their limits", kName, failed_, figures_));
        for (const Worst& worst : worst_) {
            if (!worst.metric.empty()) {
                report_.AddNote(fmt::format("{}.{}: highest lower bound, {:.3f}", kName,
                                            worst.metric, worst.bound));
            }
        }
    }

private:
    struct Worst {
        double bound = 0;
        std::string metric;
    };

    void Tell(const std::string& metric, const Figure& figure, double bound, double again) {
        const bool fails = again > figure.limit;
        failed_ += fails ? 1 : 0;
        report_.AddNote(fmt::format("{}.{}: {} (limit {:.2f}, lower 95 % bounds {:.3f} and {:.3f})",
                                    kName, metric, fails ? "EXCEEDS" : "exceeded once, not again",
                                    figure.limit, bound, again));
    }

    Report& report_;
    int figures_ = 0;
    int failed_ = 0;
    std::array<Worst, kFigures.size()> worst_;
};

}  // namespace

void MeasureChannels(Report& report) {
    std::vector<CallCell> cells = AllCallCells();
    std::erase_if(cells, [&report](const CallCell& cell) {
        return !report.Wants(std::string(kName) + "." + cell.Name());
    });
    if (cells.empty()) {
        return;
    }
    const double microseconds =
        std::min(kLongestRoundMicroseconds,
                 kGridMicroseconds / (static_cast<double>(cells.size()) * kRounds * 2));
    Judge judge(report);
    for (const CallCell& cell : cells) {
        judge.Measure(cell, microseconds);
    }
    judge.Conclude();
}

}  // namespace zam_bench
