#include "server/user_shares.h"

#include <optional>

#include "zam_platform/server/log_context.h"

namespace zam_platform {

bool UserShares::Take(std::chrono::steady_clock::time_point now) noexcept {
    const std::optional<uid_t> user = LogContext::Here().user;
    return !user || lines_.Take(*user, now);
}

}  // namespace zam_platform
