#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace zam_fuzz {

/// An input, read from the front. Behind its end there are zeros.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    bool IsAtEnd() const noexcept { return next_ == end_; }

    std::uint8_t Byte() noexcept { return next_ == end_ ? std::uint8_t{0} : *next_++; }

    std::uint16_t Word() noexcept {
        const unsigned low = Byte();
        return static_cast<std::uint16_t>(low | static_cast<unsigned>(Byte()) << 8U);
    }

    /// So many bytes, or what is left.
    std::vector<unsigned char> Bytes(std::size_t count) {
        const auto left = static_cast<std::size_t>(end_ - next_);
        const std::uint8_t* const first = next_;
        next_ += std::min(count, left);
        return {first, next_};
    }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
};

}  // namespace zam_fuzz
