#pragma once

#include <chrono>
#include <string_view>

namespace zam_platform {

/// Writes whole lines to a descriptor that may be full, closed or gone, such as stderr, and neither
/// raises a signal nor waits longer than it is told. What the descriptor refers to is looked at
/// anew for each text, so that a `dup2` over it is followed at once and nothing is kept open of
/// what it was. One thread at a time.
class StderrOutput {
public:
    explicit StderrOutput(int descriptor) noexcept : descriptor_(descriptor) {}

    /// False when `text`, which ends with a line feed, could not be written, or not whole. Waits at
    /// most until `end` for a reader to make room, and not at all while the text before could not
    /// be written for want of room.
    bool Write(std::string_view text, std::chrono::steady_clock::time_point end) noexcept;

    /// Whether the last text was written in part: what comes next stands behind its torn line.
    bool IsTorn() const noexcept { return isTorn_; }

private:
    int descriptor_;
    bool isTorn_ = false;
    bool isFull_ = false;
};

}  // namespace zam_platform
