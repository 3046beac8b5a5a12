#include "benchmarks/call_cell.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>

namespace zam_bench {
namespace {

using std::chrono::microseconds;
using testing::AllOf;
using testing::Contains;
using testing::Not;

std::set<std::string> Names() {
    std::set<std::string> names;
    for (const CallCell& cell : AllCallCells()) {
        names.insert(cell.Name());
    }
    return names;
}

TEST(CallCell, IsNamedAfterWhatItsProcessesDo) {
    const auto [oneCore, twoCores, unpinned] = kPlacements;
    EXPECT_EQ((CallCell{twoCores, microseconds(35), microseconds(0), 0, 1}.Name()),
              "two.t35us.h0.b0.c1");
    EXPECT_EQ((CallCell{oneCore, microseconds(0), microseconds(20), 1, 8}.Name()),
              "one.t0.h20us.b1.c8");
    EXPECT_EQ((CallCell{unpinned, microseconds(1000), microseconds(0), 0, 8}.Name()),
              "unpinned.t1ms.h0.b0.c8");
}

TEST(CallCell, HasANameOfItsOwnInTheGrid) {
    EXPECT_EQ(Names().size(), AllCallCells().size());
}

TEST(CallCell, IsMeasuredAloneWhenItHardlyEverCalls) {
    EXPECT_THAT(Names(), AllOf(Contains("two.t20ms.h0.b0.c1"), Not(Contains("two.t20ms.h0.b0.c8")),
                               Contains("two.t1ms.h0.b0.c8")));
}

}  // namespace
}  // namespace zam_bench
