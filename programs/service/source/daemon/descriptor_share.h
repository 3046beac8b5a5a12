#pragma once

#include <sys/resource.h>

#include <cstddef>

namespace zam_service {

/// Descriptors that the service itself needs, with room to spare, and the fewest connections of a
/// user with which its clients get anywhere: two sockets, two calls that wait for notices, and some
/// calls at once.
inline constexpr rlim_t kOwnDescriptors = 64;
inline constexpr rlim_t kLeastUserConnections = 8;

/// Connections that one user may have when so many descriptors may be open: at most half of those
/// that are left for clients, or nobody else could connect any more, and no more than `most`.
/// Throws `zam_platform::PlatformError`, with what is needed, for too few.
std::size_t ConnectionsOfUser(rlim_t descriptors, std::size_t most);

}  // namespace zam_service
