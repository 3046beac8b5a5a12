#include "server/lent_memory.h"

#include <algorithm>
#include <utility>

#include "shared/shared_file.h"

namespace zam_platform {
namespace {

/// Part of the descriptors of a process that files of shared memory may take.
constexpr rlim_t kDescriptorPart = 16;
constexpr rlim_t kDescriptorsOfLoan = 2;

/// More than come with each request, so that none are left over.
constexpr std::size_t kLooksAtOnce = 8;

}  // namespace

LentMemory::LentMemory(rlim_t descriptors) noexcept
    : most_(std::clamp<rlim_t>(descriptors / kDescriptorPart / kDescriptorsOfLoan, 2, kMost)) {}

bool LentMemory::IsHeld(const Loan& loan) noexcept {
    return IsHeldByOthers(loan.answers) || IsHeldByOthers(loan.requests);
}

void LentMemory::ForgetReturned() noexcept {
    for (std::size_t looks = std::min(size_, kLooksAtOnce); looks > 0; --looks) {
        next_ = next_ < size_ ? next_ : 0;
        if (IsHeld(loans_[next_])) {
            ++next_;
        } else {
            --size_;
            std::swap(loans_[next_], loans_[size_]);
            loans_[size_] = {};
        }
    }
}

bool LentMemory::HasRoom(uid_t user, std::size_t placesOfUser, std::size_t places) noexcept {
    ForgetReturned();
    const auto ofUser = static_cast<std::size_t>(
        std::count_if(loans_.begin(), loans_.begin() + static_cast<std::ptrdiff_t>(size_),
                      [user](const Loan& loan) { return loan.user == user; }));
    return size_ + places < most_ && ofUser + placesOfUser < most_ / 2;
}

void LentMemory::Add(uid_t user, UniqueFd requests, UniqueFd answers) noexcept {
    Loan loan{.user = user, .requests = std::move(requests), .answers = std::move(answers)};
    if (size_ < loans_.size() && IsHeld(loan)) {
        loans_[size_++] = std::move(loan);
    }
}

}  // namespace zam_platform
