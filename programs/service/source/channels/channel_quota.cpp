#include "channels/channel_quota.h"

namespace zam_service {

std::optional<ChannelQuota::Place> ChannelQuota::Take(uid_t user) {
    std::size_t& taken = taken_[user];
    if (taken >= perUser_) {
        return std::nullopt;
    }
    ++taken;
    return Place(*this, user);
}

std::size_t ChannelQuota::TakenBy(uid_t user) const {
    const auto found = taken_.find(user);
    return found == taken_.end() ? 0 : found->second;
}

void ChannelQuota::Return(uid_t user) noexcept {
    const auto found = taken_.find(user);
    if (--found->second == 0) {
        taken_.erase(found);
    }
}

}  // namespace zam_service
