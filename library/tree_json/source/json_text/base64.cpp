#include "json_text/base64.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace zam_json {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kGroupBytes = 3;
constexpr std::size_t kGroupDigits = 4;

constexpr std::uint8_t kNoDigit = 64;

/// What each character stands for as a digit; `kNoDigit` for those that are none.
constexpr std::array<std::uint8_t, 256> kDigitValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNoDigit);
    std::uint8_t value = 0;
    for (const char digit : kDigits) {
        values[static_cast<unsigned char>(digit)] = value++;
    }
    return values;
}();

/// Appends the bytes of 2 to 4 digits; false when they are not the digits of whole bytes.
bool DecodeGroup(std::string_view digits, std::string& bytes) {
    std::uint32_t bits = 0;
    for (std::size_t index = 0; index < kGroupDigits; ++index) {
        const unsigned value =
            index < digits.size() ? kDigitValues[static_cast<unsigned char>(digits[index])] : 0;
        if (value == kNoDigit) {
            return false;
        }
        bits = (bits << 6U) | value;
    }
    std::size_t left = digits.size() - 1;
    for (; left > 0; --left) {
        bytes += static_cast<char>((bits >> 16U) & 0xFFU);
        bits = (bits << 8U) & 0xFFFFFFU;
    }
    // Bits behind the last byte would give the same bytes a second text.
    return bits == 0;
}

}  // namespace

std::string EncodeBase64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / kGroupBytes * kGroupDigits);
    for (std::size_t offset = 0; offset < bytes.size(); offset += kGroupBytes) {
        const std::string_view group = bytes.substr(offset, kGroupBytes);
        std::uint32_t bits = 0;
        for (std::size_t index = 0; index < kGroupBytes; ++index) {
            const auto byte = index < group.size() ? static_cast<unsigned char>(group[index]) : 0U;
            bits = (bits << 8U) | byte;
        }
        for (std::size_t index = 0; index < kGroupDigits; ++index) {
            const bool isPadding = index > group.size();
            text += isPadding ? '=' : kDigits[(bits >> (18U - 6U * index)) & 0x3FU];
        }
    }
    return text;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
    if (text.size() % kGroupDigits != 0) {
        return std::nullopt;
    }
    std::string bytes;
    bytes.reserve(text.size() / kGroupDigits * kGroupBytes);
    for (std::size_t offset = 0; offset < text.size(); offset += kGroupDigits) {
        std::string_view digits = text.substr(offset, kGroupDigits);
        if (offset + kGroupDigits == text.size() && digits.back() == '=') {
            // Padding that stands elsewhere stays, and is refused as no digit.
            digits.remove_suffix(digits[2] == '=' ? 2 : 1);
        }
        if (!DecodeGroup(digits, bytes)) {
            return std::nullopt;
        }
    }
    return bytes;
}

}  // namespace zam_json
