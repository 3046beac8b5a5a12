#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <optional>

#include "zam_platform/server/alarm.h"
#include "zam_platform/server/endpoint.h"

namespace zam_platform {

/// What becomes of a connection that names its client.
enum class Attachment {
    Done,
    Foreign,  ///< the token is in use by another user
    Full,     ///< the user has as many sessions as it may have
};

/// Client processes, as the server tells them apart: by the token that each of their connections
/// begins with. What a client holds belongs to its session, which ends a short grace after its
/// last connection, so that a client which reconnects keeps it. On the loop thread only.
class SessionRegistry {
public:
    SessionRegistry(asio::io_context& context, std::chrono::milliseconds grace,
                    std::size_t perUser = std::numeric_limits<std::size_t>::max());

    /// Counts a connection in, unless it is refused.
    Attachment Attach(const ClientIdentity& client);

    /// Counts a connection out.
    void Detach(const SessionToken& token) noexcept;

    /// Called when a session has ended; must not throw. However many end at once, others are served
    /// in between.
    void OnEnd(std::function<void(const SessionToken&)> observer) { onEnd_ = std::move(observer); }

    std::size_t Count() const noexcept { return sessions_.size(); }

private:
    /// The end to come of a session without a connection.
    struct End {
        std::chrono::steady_clock::time_point due;
        SessionToken token;
    };

    struct Session {
        uid_t user = 0;
        std::size_t connections = 0;
        /// Its end, while it has connections; made with it, so that ending takes no memory.
        std::list<End> spare;
        std::list<End>::iterator end;
    };

    void AwaitEnd() noexcept;
    void EndDue() noexcept;
    void EndFirst() noexcept;

    const std::chrono::milliseconds grace_;
    const std::size_t perUser_;
    Alarm alarm_;
    std::map<SessionToken, Session> sessions_;
    std::map<uid_t, std::size_t> ofUsers_;
    std::list<End> ends_;  ///< by their time, since the grace is always the same
    std::function<void(const SessionToken&)> onEnd_;
};

}  // namespace zam_platform
