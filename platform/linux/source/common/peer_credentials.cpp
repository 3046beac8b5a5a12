#include "zam_platform/peer_credentials.h"

#include <sys/socket.h>

#include <atomic>
#include <cerrno>

#include "zam_platform/posix_error.h"

namespace zam_platform {
namespace {

std::atomic<PeerCredentialsFunction> g_function{&ReadPeerCredentials};

std::vector<gid_t> ReadPeerGroups(int socket) {
    socklen_t bytes = 0;
    // The first call fails with ERANGE and tells the size; with no groups at all it succeeds.
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, nullptr, &bytes) == 0) {
        return {};
    }
    if (errno != ERANGE) {
        throw PosixError("groups of the peer", errno);
    }
    std::vector<gid_t> groups(bytes / sizeof(gid_t));
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &bytes) != 0) {
        throw PosixError("groups of the peer", errno);
    }
    groups.resize(bytes / sizeof(gid_t));
    return groups;
}

}  // namespace

PeerCredentials ReadPeerCredentials(int socket, bool withGroups) {
    ucred credentials{};
    socklen_t bytes = sizeof(credentials);
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &bytes) != 0) {
        throw PosixError("credentials of the peer", errno);
    }
    PeerCredentials peer{.user = credentials.uid, .group = credentials.gid, .groups = {}};
    if (withGroups) {
        peer.groups = ReadPeerGroups(socket);
    }
    return peer;
}

PeerCredentials QueryPeerCredentials(int socket, bool withGroups) {
    return g_function.load(std::memory_order_acquire)(socket, withGroups);
}

PeerCredentialsFunction SetPeerCredentialsFunction(PeerCredentialsFunction function) noexcept {
    return g_function.exchange(function != nullptr ? function : &ReadPeerCredentials,
                               std::memory_order_acq_rel);
}

}  // namespace zam_platform
