#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <array>
#include <cstddef>

#include "zam_platform/unique_fd.h"

namespace zam_platform {

/// Memory that the service has let go of and a client still holds: its pages count as the service's
/// for as long as somebody keeps the files open, mapped, or unread in a socket. What nobody holds
/// any more is forgotten. One thread at a time; takes no memory, and waits for nobody.
class LentMemory {
public:
    /// Most that are remembered, of all users together; fewer where this process may have few
    /// descriptors, of which each takes two.
    static constexpr std::size_t kMost = 256;

    /// For a process that may have so many descriptors.
    explicit LentMemory(rlim_t descriptors) noexcept;

    std::size_t Most() const noexcept { return most_; }

    /// Whether there is room for one more of this user, who has `placesOfUser` of `places` that are
    /// in use now and may be lent later. A user may have half of all. Looks at some of those that
    /// were lent before.
    bool HasRoom(uid_t user, std::size_t placesOfUser, std::size_t places) noexcept;

    /// Takes the service's own files of memory that it has let go of.
    void Add(uid_t user, UniqueFd requests, UniqueFd answers) noexcept;

    /// How many are remembered.
    std::size_t Size() const noexcept { return size_; }

private:
    struct Loan {
        uid_t user = 0;
        UniqueFd requests;
        UniqueFd answers;
    };

    static bool IsHeld(const Loan& loan) noexcept;
    void ForgetReturned() noexcept;

    const std::size_t most_;
    std::array<Loan, kMost> loans_;
    std::size_t size_ = 0;
    std::size_t next_ = 0;  ///< to be looked at
};

}  // namespace zam_platform
