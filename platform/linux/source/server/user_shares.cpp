#include "server/user_shares.h"

#include <algorithm>

#include "zam_platform/server/log_context.h"

namespace zam_platform {

bool UserShares::Take(std::chrono::steady_clock::time_point now) noexcept {
    const std::optional<uid_t> user = LogContext::Here().user;
    if (!user) {
        return true;
    }
    Share& share = Of(*user, now);
    const auto back = (now - share.time) / kLineTime;
    if (share.lines + back >= kMostLines) {
        share.lines = kMostLines;
        share.time = now;
    } else {
        share.lines += static_cast<int>(back);
        share.time += back * kLineTime;
    }
    if (share.lines == 0) {
        return false;
    }
    --share.lines;
    return true;
}

UserShares::Share& UserShares::Of(uid_t user, std::chrono::steady_clock::time_point now) noexcept {
    const auto found = std::find_if(shares_.begin(), shares_.end(), [user](const Share& share) {
        return share.isUsed && share.user == user;
    });
    if (found != shares_.end()) {
        return *found;
    }
    Share& place = *std::min_element(
        shares_.begin(), shares_.end(), [](const Share& left, const Share& right) {
            return left.isUsed < right.isUsed ||
                   (left.isUsed == right.isUsed && left.time < right.time);
        });
    place = {.user = user, .isUsed = true, .lines = kMostLines, .time = now};
    return place;
}

}  // namespace zam_platform
