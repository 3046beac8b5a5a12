#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zam_connector/result_code.h"

/// Result codes as people read and write them.

namespace zamctl {

/// Codes of the service for which zamctl knows advice.
inline constexpr int kAccessDenied = static_cast<int>(0x80000045U);
inline constexpr int kInvalidArgument = static_cast<int>(0x80000046U);
inline constexpr int kNotReady = static_cast<int>(0x80000063U);
inline constexpr int kInvalidState = static_cast<int>(0x8000006AU);

/// "0x80000046".
std::string CodeHex(int code);

/// "0x80000046 Invalid argument".
std::string DescribeCode(int code);

/// Bits 16 to 30.
std::uint32_t Facility(int code) noexcept;

/// "general", "platform" or "unknown".
std::string_view FacilityName(std::uint32_t facility) noexcept;

/// Reads "0x...", a signed or an unsigned decimal number, each of 32 bits; empty for
/// anything else.
std::optional<int> ParseCode(std::string_view text);

/// Every code that has a text, successes first, then by number.
std::vector<int> KnownCodes();

/// What a call that succeeded has to say: `done`, or `nothingToDo` for the success value "False",
/// or `done` with the code for any other positive one.
std::string SuccessText(int code, const std::string& done, const std::string& nothingToDo);

}  // namespace zamctl
