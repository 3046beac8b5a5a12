#include "server/user_allowances.h"

#include <algorithm>

namespace zam_platform {

bool UserAllowances::Has(uid_t user, Time now, int pieces) const noexcept {
    const Account* const account = Find(user);
    return account == nullptr ? pieces <= most_
                              : account->isFullAt - now <= (most_ - pieces) * time_;
}

void UserAllowances::Charge(uid_t user, Time now, int pieces) noexcept {
    Account& account = Of(user, now);
    account.isFullAt =
        std::min(std::max(account.isFullAt, now) + pieces * time_, now + 2 * most_ * time_);
}

bool UserAllowances::Take(uid_t user, Time now) noexcept {
    if (!Has(user, now)) {
        return false;
    }
    Charge(user, now);
    return true;
}

const UserAllowances::Account* UserAllowances::Find(uid_t user) const noexcept {
    const auto found = std::find_if(
        accounts_.begin(), accounts_.end(),
        [user](const Account& account) { return account.isUsed && account.user == user; });
    return found == accounts_.end() ? nullptr : &*found;
}

UserAllowances::Account& UserAllowances::Of(uid_t user, Time now) noexcept {
    if (const Account* const known = Find(user)) {
        return accounts_[static_cast<std::size_t>(known - accounts_.data())];
    }
    // One that is full has nothing to be remembered.
    Account& place = *std::min_element(
        accounts_.begin(), accounts_.end(), [](const Account& left, const Account& right) {
            return left.isUsed < right.isUsed ||
                   (left.isUsed == right.isUsed && left.isFullAt < right.isFullAt);
        });
    place = {.user = user, .isUsed = true, .isFullAt = now};
    return place;
}

}  // namespace zam_platform
