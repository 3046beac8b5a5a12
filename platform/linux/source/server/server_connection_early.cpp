#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>

#include "server/server_connection.h"
#include "zam_platform/server/log_context.h"

/// How a connection is served before its turn.

namespace zam_platform {

void ServerConnection::ServeEarly() noexcept {
    if (server_.isClosing_ || !MayServeEarly()) {
        return;
    }
    const LogsForUser logsForUser(client_.user);
    Guard([this] {
        // Into the buffer of the read that is under way, which has not begun.
        const int socket = Descriptor();
        const ssize_t got = ::recv(socket, inline_.data(), inline_.size(), MSG_PEEK | MSG_DONTWAIT);
        const auto bytes = static_cast<std::size_t>(got);
        Prelude prelude;
        if (got >= static_cast<ssize_t>(kPreludeBytes) &&
            DecodePrelude(inline_.data(), prelude) == FrameFault::None &&
            prelude.FrameBytes() == bytes && !HasEndedElsewhere() &&
            ::recv(socket, inline_.data(), bytes, MSG_DONTWAIT) == got) {
            HandleFrames(bytes);
            if (turn_) {
                server_.quiet_->OnServedEarly(*turn_, bytes);
            }
        }
        inline_[0] = kNothingRead;
    });
}

bool ServerConnection::HasEndedElsewhere() const noexcept {
    constexpr std::size_t kMostOfClient = 64;  // on the stack, and in one system call
    const auto found = server_.greeted_.find(client_.token);
    if (found == server_.greeted_.end() || found->second.size() == 1) {
        return false;
    }
    if (found->second.size() > kMostOfClient) {
        return true;  // for all that can be told in one system call without memory
    }
    std::array<pollfd, kMostOfClient> ends;
    nfds_t count = 0;
    for (ServerConnection* const connection : found->second) {
        ends[count++] = {.fd = connection->Descriptor(), .events = POLLRDHUP, .revents = 0};
    }
    return ::poll(ends.data(), count, 0) != 0;
}

}  // namespace zam_platform
