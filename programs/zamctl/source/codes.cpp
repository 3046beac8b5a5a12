#include "codes.h"

#include <fmt/format.h>

#include <charconv>
#include <limits>

namespace zamctl {
namespace {

constexpr std::uint32_t kFailureBit = 0x80000000U;
constexpr unsigned kFacilityShift = 16;
constexpr std::uint32_t kFacilityMask = 0x7FFFU;
constexpr std::uint32_t kGeneralFacility = 0;
constexpr std::uint32_t kPlatformFacility = 1;

/// The text that the library gives a number that is no known code.
constexpr std::string_view kUnknownText = "Unknown result code";

template <typename Integer>
std::optional<Integer> ParseWhole(std::string_view text, int base) {
    Integer value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

std::string CodeHex(int code) {
    return fmt::format("0x{:08X}", static_cast<std::uint32_t>(code));
}

std::string DescribeCode(int code) {
    return CodeHex(code) + ' ' + zam_connector::ResultCodeMessage(code);
}

std::uint32_t Facility(int code) noexcept {
    return (static_cast<std::uint32_t>(code) >> kFacilityShift) & kFacilityMask;
}

std::string_view FacilityName(std::uint32_t facility) noexcept {
    switch (facility) {
        case kGeneralFacility:
            return "general";
        case kPlatformFacility:
            return "platform";
        default:
            return "unknown";
    }
}

std::optional<int> ParseCode(std::string_view text) {
    // Logs and languages show the same code as hexadecimal, as signed and as unsigned.
    std::optional<std::uint32_t> bits;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        // from_chars would take a sign behind the prefix for signed types only; the unsigned one
        // refuses it.
        bits = ParseWhole<std::uint32_t>(text.substr(2), 16);
    } else if (text.starts_with('-')) {
        return ParseWhole<std::int32_t>(text, 10);
    } else {
        bits = ParseWhole<std::uint32_t>(text, 10);
    }
    if (!bits) {
        return std::nullopt;
    }
    return static_cast<int>(*bits);
}

std::vector<int> KnownCodes() {
    std::vector<int> codes = {zam_connector::kNoError, zam_connector::kFalse};
    // The library tells the text of a code but has no list of them: every one there can be is
    // asked.
    for (const std::uint32_t facility : {kGeneralFacility, kPlatformFacility}) {
        for (std::uint32_t low = 0; low <= std::numeric_limits<std::uint16_t>::max(); ++low) {
            const auto code = static_cast<int>(kFailureBit | facility << kFacilityShift | low);
            if (zam_connector::ResultCodeMessage(code) != kUnknownText) {
                codes.push_back(code);
            }
        }
    }
    return codes;
}

std::string SuccessText(int code, const std::string& done, const std::string& nothingToDo) {
    switch (code) {
        case zam_connector::kNoError:
            return done;
        case zam_connector::kFalse:
            return nothingToDo;
        default:
            return fmt::format("{} (result {})", done, DescribeCode(code));
    }
}

}  // namespace zamctl
