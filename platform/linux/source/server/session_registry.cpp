#include "zam_platform/server/session_registry.h"

namespace zam_platform {

SessionRegistry::SessionRegistry(asio::io_context& context, std::chrono::milliseconds grace)
    : context_(context), grace_(grace) {}

bool SessionRegistry::Attach(const ClientIdentity& client) {
    const auto [entry, isNew] = sessions_.try_emplace(client.token);
    Session& session = entry->second;
    if (isNew) {
        session.user = client.user;
    } else if (session.user != client.user) {
        return false;
    }
    ++session.connections;
    session.grace.reset();
    return true;
}

void SessionRegistry::Detach(const SessionToken& token) {
    const auto entry = sessions_.find(token);
    if (entry == sessions_.end() || --entry->second.connections != 0) {
        return;
    }
    entry->second.grace = std::make_unique<asio::steady_timer>(context_, grace_);
    entry->second.grace->async_wait([this, token](const std::error_code& error) {
        if (!error) {
            End(token);
        }
    });
}

void SessionRegistry::End(const SessionToken& token) {
    const auto entry = sessions_.find(token);
    // A connection may have come, and even gone again, between the timer's end and this call.
    if (entry == sessions_.end() || entry->second.connections != 0 ||
        entry->second.grace->expiry() > std::chrono::steady_clock::now()) {
        return;
    }
    sessions_.erase(entry);
    if (onEnd_) {
        onEnd_(token);
    }
}

}  // namespace zam_platform
