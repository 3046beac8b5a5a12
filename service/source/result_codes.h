#pragma once

#include "qel/result_code.h"

namespace zam_service {

/// Result codes that this service answers with.
inline constexpr int kNoError = qel::kNoError;
inline constexpr int kFalse = qel::kFalse;  ///< nothing to do: it is so already
inline constexpr int kInvalidArgument = qel::kInvalidArgument;
inline constexpr int kMediaError = qel::FromBits(0x80000059U);  ///< the disk failed
inline constexpr int kInvalidState = qel::FromBits(0x8000006AU);
inline constexpr int kInsufficientResources = qel::FromBits(0x8000006CU);  ///< try later

}  // namespace zam_service
