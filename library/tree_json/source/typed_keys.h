#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

/// The keys of the objects that stand for the kinds JSON does not have, and what stands in them.

namespace zam_connector::tree_json {

inline constexpr char kTypeMark = '$';

inline constexpr std::string_view kInt8Key = "$int8";
inline constexpr std::string_view kInt16Key = "$int16";
inline constexpr std::string_view kInt32Key = "$int32";
inline constexpr std::string_view kUInt8Key = "$uint8";
inline constexpr std::string_view kUInt16Key = "$uint16";
inline constexpr std::string_view kUInt32Key = "$uint32";
inline constexpr std::string_view kUInt64Key = "$uint64";
inline constexpr std::string_view kTimeKey = "$time";
inline constexpr std::string_view kDoubleKey = "$double";
inline constexpr std::string_view kStringKey = "$string";
inline constexpr std::string_view kBlobKey = "$blob";
inline constexpr std::string_view kMapKey = "$map";

inline constexpr std::string_view kNan = "nan";
inline constexpr std::string_view kInfinity = "inf";
inline constexpr std::string_view kMinusInfinity = "-inf";
inline constexpr std::string_view kBitsPrefix = "0x";

/// The bits of the NaN that is written by name: quiet, positive, without a payload.
inline constexpr std::uint64_t kNanBits = 0x7FF8000000000000;

static_assert(std::numeric_limits<double>::is_iec559);

}  // namespace zam_connector::tree_json
