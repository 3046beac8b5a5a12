#pragma once

/// Codes that the tests expect, by their values: what clients were compiled against must not change
/// with a constant of the product's.
namespace zam_connector::test {

inline constexpr int kInvalidArgument = static_cast<int>(0x80000046U);
inline constexpr int kUnspecified = static_cast<int>(0x8000004BU);
inline constexpr int kServiceFailure = static_cast<int>(0x8000004CU);
inline constexpr int kInvalidResult = static_cast<int>(0x80000071U);

}  // namespace zam_connector::test
