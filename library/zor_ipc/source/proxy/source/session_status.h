#pragma once

#include <cstdint>

namespace zam_connector::proxy {

/// The service's statuses of channel operations that mean success.
inline constexpr std::int8_t kSessionOk = 0;
inline constexpr std::int8_t kSessionLast = 1;  ///< of a streaming read: the end of the stream

/// The result code of a session status: 0 and 1 as they are, every other status a failure.
int SessionStatusToResultCode(std::int8_t status) noexcept;

}  // namespace zam_connector::proxy
