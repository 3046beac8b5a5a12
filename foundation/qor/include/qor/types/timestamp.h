#pragma once

#include <cstdint>

namespace qor::types {

/// A point in time held as one 64-bit count. The count is carried unchanged between records, trees
/// and the wire; what it counts, and from when, is agreed between the product and its server. A
/// plain value.
class Timestamp {
public:
    /// The count 0.
    constexpr Timestamp() noexcept = default;
    constexpr explicit Timestamp(std::int64_t count) noexcept : count_(count) {}

    constexpr std::int64_t Count() const noexcept { return count_; }

    friend constexpr bool operator==(Timestamp left, Timestamp right) noexcept {
        return left.count_ == right.count_;
    }
    friend constexpr bool operator!=(Timestamp left, Timestamp right) noexcept {
        return left.count_ != right.count_;
    }
    friend constexpr bool operator<(Timestamp left, Timestamp right) noexcept {
        return left.count_ < right.count_;
    }
    friend constexpr bool operator>(Timestamp left, Timestamp right) noexcept {
        return right < left;
    }
    friend constexpr bool operator<=(Timestamp left, Timestamp right) noexcept {
        return !(right < left);
    }
    friend constexpr bool operator>=(Timestamp left, Timestamp right) noexcept {
        return !(left < right);
    }

private:
    std::int64_t count_ = 0;
};

}  // namespace qor::types
