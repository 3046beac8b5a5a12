#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace zam_platform {

/// A lock that is waited for no longer than one says, and whose parent's holder does not matter to
/// the child of a `fork`. The standard's timed mutex is unknown to ThreadSanitizer.
class TimedLock {
public:
    /// False when it could not be had within `most`.
    bool Lock(std::chrono::nanoseconds most) noexcept;
    void Unlock() noexcept;

private:
    enum State : std::uint32_t { kFree, kHeld, kHeldAndAwaited };

    std::atomic<std::uint32_t> state_{kFree};
};

}  // namespace zam_platform
