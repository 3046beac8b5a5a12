#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>

#include "log/stderr_log.h"

namespace zam_platform {

/// Each user's share of a log, so that nobody's clients fill it with what they do wrong. Who is at
/// work is known from `LogContext`; what is nobody's is not limited.
class UserShares final : public LogShare {
public:
    /// Lines that a user's clients may cause at once, and how long each of them takes to come back.
    static constexpr int kMostLines = 32;
    static constexpr std::chrono::seconds kLineTime{1};

    /// Users that are remembered; the one that wrote longest ago is forgotten first.
    static constexpr std::size_t kMaxUsers = 64;

    bool Take(std::chrono::steady_clock::time_point now) noexcept override;

private:
    struct Share {
        uid_t user;
        bool isUsed = false;
        int lines;                                   ///< left at `time`
        std::chrono::steady_clock::time_point time;  ///< up to which lines have come back
    };

    Share& Of(uid_t user, std::chrono::steady_clock::time_point now) noexcept;

    std::array<Share, kMaxUsers> shares_{};
};

}  // namespace zam_platform
