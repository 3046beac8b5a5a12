#include "paired_ratios.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace zam_bench {
namespace {

constexpr double kByChance = 0.05;

}  // namespace

std::vector<double> PairedRatios(const std::vector<double>& values,
                                 const std::vector<double>& floors) {
    if (values.size() != floors.size()) {
        throw std::invalid_argument("values and floors were not measured in turns");
    }
    std::vector<double> ratios;
    ratios.reserve(values.size());
    for (std::size_t round = 0; round < values.size(); ++round) {
        ratios.push_back(values[round] / floors[round]);
    }
    return ratios;
}

double LowerBound(std::vector<double> ratios) {
    std::sort(ratios.begin(), ratios.end());
    // Every ratio is as likely to lie below the middle as above it. That at most `below` of them
    // lie below is the chance by which the next one is no lower bound.
    const auto count = static_cast<double>(ratios.size());
    double probability = std::pow(0.5, count);
    double chance = 0;
    double bound = 0;
    for (std::size_t below = 0; below < ratios.size(); ++below) {
        chance += probability;
        if (chance > kByChance) {
            break;
        }
        bound = ratios[below];
        const auto so = static_cast<double>(below);
        probability *= (count - so) / (so + 1);
    }
    return bound;
}

}  // namespace zam_bench
