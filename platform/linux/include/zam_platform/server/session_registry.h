#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>

#include "zam_platform/server/endpoint.h"

namespace zam_platform {

/// Client processes, as the server tells them apart: by the token that each of their connections
/// begins with. What a client holds belongs to its session, which ends a short grace after its
/// last connection, so that a client which reconnects keeps it. On the loop thread only.
class SessionRegistry {
public:
    SessionRegistry(asio::io_context& context, std::chrono::milliseconds grace);

    /// Counts a connection in. False when the token is in use by another user.
    bool Attach(const ClientIdentity& client);

    /// Counts a connection out.
    void Detach(const SessionToken& token);

    /// Called when a session has ended.
    void OnEnd(std::function<void(const SessionToken&)> observer) { onEnd_ = std::move(observer); }

    std::size_t Count() const noexcept { return sessions_.size(); }

private:
    struct Session {
        uid_t user = 0;
        std::size_t connections = 0;
        std::unique_ptr<asio::steady_timer> grace;
    };

    void End(const SessionToken& token);

    asio::io_context& context_;
    const std::chrono::milliseconds grace_;
    std::map<SessionToken, Session> sessions_;
    std::function<void(const SessionToken&)> onEnd_;
};

}  // namespace zam_platform
