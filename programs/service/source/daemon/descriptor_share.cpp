#include "daemon/descriptor_share.h"

#include <fmt/format.h>

#include <algorithm>

#include "zam_platform/posix_error.h"

namespace zam_service {

std::size_t ConnectionsOfUser(rlim_t descriptors, std::size_t most) {
    constexpr rlim_t kNeeded = kOwnDescriptors + 2 * kLeastUserConnections;
    if (descriptors < kNeeded) {
        throw zam_platform::PlatformError(
            zam_platform::kStatusResources,
            fmt::format("too few file descriptors: the limit (RLIMIT_NOFILE) is {}, at least {} "
                        "are needed; raise it with 'ulimit -n', or LimitNOFILE= in the unit",
                        descriptors, kNeeded));
    }
    return std::min<rlim_t>(most, (descriptors - kOwnDescriptors) / 2);
}

}  // namespace zam_service
