#include "call_cell.h"

#include <array>
#include <string_view>

namespace zam_bench {
namespace {

using std::chrono::microseconds;

/// Around the longest that a side may wait awake, 50 us, lie four of them.
constexpr std::array<microseconds, 9> kThinkTimes = {
    microseconds(0),  microseconds(5),   microseconds(20),   microseconds(35),    microseconds(48),
    microseconds(60), microseconds(100), microseconds(1000), microseconds(20'000)};
constexpr microseconds kSeldom(20'000);
constexpr std::array<microseconds, 2> kHandlerTimes = {microseconds(0), microseconds(20)};
constexpr std::array<int, 2> kBusy = {0, 1};
constexpr std::array<int, 2> kClients = {1, 8};

std::string Shown(microseconds time) {
    if (time.count() == 0) {
        return "0";
    }
    return time.count() % 1000 == 0 ? std::to_string(time.count() / 1000) + "ms"
                                    : std::to_string(time.count()) + "us";
}

}  // namespace

std::string CallCell::Name() const {
    const std::string_view place = placement.name;
    return std::string(place.substr(0, place.find('_'))) + ".t" + Shown(think) + ".h" +
           Shown(handler) + ".b" + std::to_string(busy) + ".c" + std::to_string(clients);
}

std::vector<CallCell> AllCallCells() {
    std::vector<CallCell> cells;
    for (const Placement& placement : kPlacements) {
        for (const microseconds think : kThinkTimes) {
            for (const microseconds handler : kHandlerTimes) {
                for (const int busy : kBusy) {
                    for (const int clients : kClients) {
                        if (think < kSeldom || clients == 1) {
                            cells.push_back({placement, think, handler, busy, clients});
                        }
                    }
                }
            }
        }
    }
    return cells;
}

}  // namespace zam_bench
