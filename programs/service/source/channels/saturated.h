#pragma once

#include <cstddef>
#include <limits>

/// Sums and products that end at the largest number there is. Thread-safe.

namespace zam_service {

inline constexpr std::size_t kUncountable = std::numeric_limits<std::size_t>::max();

constexpr std::size_t SaturatedSum(std::size_t left, std::size_t right) noexcept {
    return left > kUncountable - right ? kUncountable : left + right;
}

constexpr std::size_t SaturatedProduct(std::size_t left, std::size_t right) noexcept {
    return right != 0 && left > kUncountable / right ? kUncountable : left * right;
}

}  // namespace zam_service
