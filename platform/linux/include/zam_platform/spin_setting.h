#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace zam_platform {

/// Longest look of either side for what the other puts into shared memory. Beyond it a call through
/// the socket costs no more.
inline constexpr std::chrono::microseconds kMaxSpin{50};

/// Reads a number of microseconds from 0 to `kMaxSpin`; empty for anything else.
std::optional<std::chrono::microseconds> ParseSpin(std::string_view text) noexcept;

/// Whether this build has the fast channel, as the option `ZAM_FAST_CHANNEL` says.
bool HasFastChannel() noexcept;

/// How long this process looks: `ZAM_SPIN`, in microseconds, else `kMaxSpin`; 0, for not at all,
/// where there is one CPU only. Set-uid programs do not read the variable. A text that is no such
/// number is told in the log and not heeded.
///
/// `wished` takes the variable's place. A build without the fast channel heeds neither: 0.
std::chrono::nanoseconds SpinCap(std::optional<std::chrono::microseconds> wished = {}) noexcept;

/// How long the calls that this process makes look, as it found out once. Thread-safe.
std::chrono::nanoseconds ClientSpinCap() noexcept;

}  // namespace zam_platform
