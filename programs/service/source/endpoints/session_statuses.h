#pragma once

#include <cstdint>

namespace zam_service {

/// Session statuses that this service answers channel operations with.
inline constexpr std::int8_t kSessionMore = 0;  ///< done; of a piece: more follow
inline constexpr std::int8_t kSessionLast = 1;  ///< done; this was the last piece
inline constexpr std::int8_t kSessionInvalid =
    -1;                                          ///< no such channel, or nothing to be made of it
inline constexpr std::int8_t kSessionFull = -2;  ///< more than is taken

}  // namespace zam_service
