#pragma once

#include <sys/types.h>

#include <vector>

namespace zam_platform {

/// Who is at the other end of a connection, as the kernel recorded it when the connection was
/// made. There is no process id in it: nothing is ever decided by one.
struct PeerCredentials {
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups;  ///< supplementary groups; empty where they were not asked for
};

/// Asks the kernel about the peer of a connected socket. With `withGroups` the supplementary
/// groups too. Throws `PlatformError`.
PeerCredentials ReadPeerCredentials(int socket, bool withGroups);

using PeerCredentialsFunction = PeerCredentials (*)(int socket, bool withGroups);

/// What client and server ask through: `ReadPeerCredentials` until a test puts another function in
/// its place. Thread-safe.
PeerCredentials QueryPeerCredentials(int socket, bool withGroups);

/// Replaces that function, null for `ReadPeerCredentials`, and returns the one before.
PeerCredentialsFunction SetPeerCredentialsFunction(PeerCredentialsFunction function) noexcept;

}  // namespace zam_platform
