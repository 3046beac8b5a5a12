#include "benchmarks/paired_ratios.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <stdexcept>
#include <vector>

namespace zam_bench {
namespace {

using testing::ElementsAre;

TEST(PairedRatios, AreThoseOfEachRound) {
    EXPECT_THAT(PairedRatios({3, 1, 8}, {2, 1, 16}), ElementsAre(1.5, 1, 0.5));
}

TEST(PairedRatios, NeedAsManyFloorsAsValues) {
    EXPECT_THROW(PairedRatios({1, 2}, {1}), std::invalid_argument);
}

/// 1.01, 1.02 and so on, backwards.
std::vector<double> Descending(std::size_t count) {
    std::vector<double> ratios;
    for (std::size_t place = count; place > 0; --place) {
        ratios.push_back(1 + static_cast<double>(place) / 100);
    }
    return ratios;
}

/// Places from the tables of the sign test, one-sided, 5 %.
TEST(LowerBound, IsTheRatioThatTheSignTestNames) {
    struct Row {
        std::size_t ratios;
        std::size_t place;  ///< of the bound among them, the smallest being 1
    };
    for (const Row& row : {Row{5, 1}, Row{6, 1}, Row{7, 1}, Row{8, 2}, Row{9, 2}, Row{10, 2},
                           Row{11, 3}, Row{12, 3}, Row{13, 4}, Row{20, 6}, Row{50, 19}}) {
        EXPECT_DOUBLE_EQ(LowerBound(Descending(row.ratios)),
                         1 + static_cast<double>(row.place) / 100)
            << row.ratios << " ratios";
    }
}

TEST(LowerBound, IsZeroForTooFewToTell) {
    EXPECT_EQ(LowerBound({}), 0);
    EXPECT_EQ(LowerBound({2, 2, 2, 2}), 0);
}

TEST(LowerBound, IsNotMovedByOneDisturbedRoundOfEight) {
    EXPECT_EQ(LowerBound({1.2, 1.2, 1.2, 0.01, 1.2, 1.2, 1.2, 1.2}), 1.2);
    EXPECT_EQ(LowerBound({1, 1, 1, 100, 1, 1, 1, 1}), 1);
}

}  // namespace
}  // namespace zam_bench
