#include "zam_platform/server/session_registry.h"

namespace zam_platform {
namespace {

using Clock = std::chrono::steady_clock;

/// How long sessions are ended at a stretch: what they hold goes with them, and others wait
/// meanwhile. The end of a single session may take a little longer.
constexpr std::chrono::milliseconds kLongestStretch{2};

}  // namespace

SessionRegistry::SessionRegistry(asio::io_context& context, std::chrono::milliseconds grace,
                                 std::size_t perUser)
    : grace_(grace), perUser_(perUser), alarm_(context, [this] { EndDue(); }) {}

Attachment SessionRegistry::Attach(const ClientIdentity& client) {
    const auto found = sessions_.find(client.token);
    if (found != sessions_.end()) {
        Session& session = found->second;
        if (session.user != client.user) {
            return Attachment::Foreign;
        }
        if (session.connections++ == 0) {
            session.spare.splice(session.spare.begin(), ends_, session.end);
        }
        return Attachment::Done;
    }
    std::size_t& ofUser = ofUsers_[client.user];
    if (ofUser >= perUser_) {
        return Attachment::Full;
    }
    Session& session = sessions_[client.token];
    try {
        session.spare.push_back({.due = {}, .token = client.token});
    } catch (...) {
        sessions_.erase(client.token);
        throw;
    }
    session.user = client.user;
    session.connections = 1;
    session.end = session.spare.begin();
    ++ofUser;
    return Attachment::Done;
}

void SessionRegistry::Detach(const SessionToken& token) noexcept {
    const auto entry = sessions_.find(token);
    if (entry == sessions_.end() || --entry->second.connections != 0) {
        return;
    }
    Session& session = entry->second;
    session.end->due = Clock::now() + grace_;
    ends_.splice(ends_.end(), session.spare);
    AwaitEnd();
}

void SessionRegistry::AwaitEnd() noexcept {
    if (!alarm_.IsSet() && !ends_.empty()) {
        alarm_.RingAt(ends_.front().due);
    }
}

void SessionRegistry::EndDue() noexcept {
    const auto start = Clock::now();
    for (auto now = start; !ends_.empty() && ends_.front().due <= now; now = Clock::now()) {
        if (now - start >= kLongestStretch) {
            break;
        }
        EndFirst();
    }
    AwaitEnd();
}

void SessionRegistry::EndFirst() noexcept {
    const SessionToken token = ends_.front().token;
    ends_.pop_front();
    const auto entry = sessions_.find(token);
    const auto ofUser = ofUsers_.find(entry->second.user);
    if (--ofUser->second == 0) {
        ofUsers_.erase(ofUser);
    }
    sessions_.erase(entry);
    if (onEnd_) {
        onEnd_(token);
    }
}

}  // namespace zam_platform
