#pragma once

#include <chrono>
#include <cstddef>

#include "log/stderr_log.h"
#include "server/user_allowances.h"

namespace zam_platform {

/// Each user's share of a log, so that nobody's clients fill it with what they do wrong. Who is at
/// work is known from `LogContext`; what is nobody's is not limited.
class UserShares final : public LogShare {
public:
    /// Lines that a user's clients may cause at once, and how long each of them takes to come back.
    static constexpr int kMostLines = 32;
    static constexpr std::chrono::seconds kLineTime{1};

    static constexpr std::size_t kMaxUsers = UserAllowances::kMaxUsers;

    bool Take(std::chrono::steady_clock::time_point now) noexcept override;

private:
    UserAllowances lines_{kMostLines, kLineTime};
};

}  // namespace zam_platform
