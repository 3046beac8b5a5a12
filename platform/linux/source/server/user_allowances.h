#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>

namespace zam_platform {

/// How much each user may take of what comes back with time, so that nobody's clients take it all.
/// Takes no memory. One thread at a time.
class UserAllowances {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Users that are remembered; the one that has the most left is forgotten first.
    static constexpr std::size_t kMaxUsers = 64;

    /// Each user may take `most` pieces at once, of which one comes back in each `time`.
    UserAllowances(int most, std::chrono::nanoseconds time) noexcept : most_(most), time_(time) {}

    /// Whether so many are left for the user.
    bool Has(uid_t user, Time now, int pieces = 1) const noexcept;

    /// Takes them, also when fewer are left; no more is owed than may be taken at once.
    void Charge(uid_t user, Time now, int pieces = 1) noexcept;

    /// Takes one if one is left.
    bool Take(uid_t user, Time now) noexcept;

private:
    struct Account {
        uid_t user = 0;
        bool isUsed = false;
        Time isFullAt;  ///< when all pieces will have come back
    };

    const Account* Find(uid_t user) const noexcept;
    Account& Of(uid_t user, Time now) noexcept;

    const int most_;
    const std::chrono::nanoseconds time_;
    std::array<Account, kMaxUsers> accounts_{};
};

}  // namespace zam_platform
