#pragma once

#include <cstdint>

namespace zam_connector {

/// Stands for one subscription of one subscriber interface; what `Unsubscribe` takes. Numbers begin
/// at 1 and are never given twice; 0 stands for no subscription. A plain value, ordered by its
/// number.
class SubscriptionCookie {
public:
    constexpr SubscriptionCookie() noexcept = default;
    constexpr explicit SubscriptionCookie(std::uint64_t value) noexcept : value_(value) {}

    constexpr std::uint64_t Value() const noexcept { return value_; }

    friend constexpr bool operator==(SubscriptionCookie left, SubscriptionCookie right) noexcept {
        return left.value_ == right.value_;
    }
    friend constexpr bool operator!=(SubscriptionCookie left, SubscriptionCookie right) noexcept {
        return left.value_ != right.value_;
    }
    friend constexpr bool operator<(SubscriptionCookie left, SubscriptionCookie right) noexcept {
        return left.value_ < right.value_;
    }

private:
    std::uint64_t value_ = 0;
};

}  // namespace zam_connector
