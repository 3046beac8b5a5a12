#pragma once

#include "qel/result_code.h"

namespace zam_service {

/// Result codes that this service answers with.
inline constexpr int kNoError = qel::kNoError;
inline constexpr int kFalse = qel::kFalse;  ///< nothing to do: it is so already
inline constexpr int kBufferTooSmall = qel::FromBits(0x80000044U);
inline constexpr int kAccessDenied = qel::FromBits(0x80000045U);
inline constexpr int kInvalidArgument = qel::kInvalidArgument;
inline constexpr int kNotFound = qel::FromBits(0x8000004CU);
inline constexpr int kCancelled = qel::FromBits(0x80000051U);
inline constexpr int kMediaError = qel::FromBits(0x80000059U);  ///< the disk failed
inline constexpr int kInvalidIndex = qel::kInvalidIndex;
inline constexpr int kNotReady = qel::FromBits(0x80000063U);
inline constexpr int kInvalidState = qel::FromBits(0x8000006AU);
inline constexpr int kInsufficientResources = qel::FromBits(0x8000006CU);  ///< try later

}  // namespace zam_service
