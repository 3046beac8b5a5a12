#pragma once

#include <vector>

namespace zam_bench {

/// Ratios of values to the floors that were measured in turns with them. Throws
/// `std::invalid_argument` when there are not as many of the one as of the other.
std::vector<double> PairedRatios(const std::vector<double>& values,
                                 const std::vector<double>& floors);

/// Lower 95 % bound of the ratio behind some measured ones: what lies above it does so in fewer
/// than one of twenty runs by chance. It supposes nothing of how they scatter (the bound of the
/// sign test): of 5 to 7 ratios it is the smallest, of 8 to 10 the second smallest, which one
/// disturbed round does not move. 0 for fewer than 5, of which nothing can be said.
double LowerBound(std::vector<double> ratios);

}  // namespace zam_bench
