#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace zam_platform {

/// Which lines say again what one said a short time ago. No I/O, no clock of its own. One thread at
/// a time.
class LogFolding {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Of equal lines one in this time is written.
    static constexpr std::chrono::seconds kSpan{1};

    /// Lines that are remembered; the one that was written longest ago is forgotten first.
    static constexpr std::size_t kMaxLines = 32;

    /// Whether an equal line was written less than `kSpan` before `now`.
    bool IsRepeated(std::string_view line, Time now) const noexcept;

    /// Takes note of a line that was written. Without memory for it it is not remembered.
    void Remember(std::string_view line, Time now) noexcept;

private:
    struct Written {
        std::string line;
        Time time;
        bool isUsed = false;
    };

    Written* Find(std::string_view line) noexcept;

    std::array<Written, kMaxLines> written_{};
};

}  // namespace zam_platform
