#include "double_name.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <system_error>

#include "typed_keys.h"

namespace zam_connector::tree_json {

std::optional<double> DoubleOfName(std::string_view name) {
    constexpr std::size_t kBitsDigits = 16;
    constexpr int kHexadecimal = 16;
    constexpr double kInf = std::numeric_limits<double>::infinity();
    if (name == kInfinity || name == kMinusInfinity) {
        return name == kInfinity ? kInf : -kInf;
    }
    std::uint64_t bits = kNanBits;
    if (name != kNan) {
        if (name.size() != kBitsPrefix.size() + kBitsDigits ||
            name.substr(0, kBitsPrefix.size()) != kBitsPrefix) {
            return std::nullopt;
        }
        const char* const end = name.data() + name.size();
        const auto result =
            std::from_chars(name.data() + kBitsPrefix.size(), end, bits, kHexadecimal);
        // What is no digit ends the number without an error.
        if (result.ec != std::errc() || result.ptr != end) {
            return std::nullopt;
        }
    }
    // Copied, not converted: the bits are the number, and a payload must come through.
    double number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return std::isnan(number) ? std::optional(number) : std::nullopt;
}

}  // namespace zam_connector::tree_json
