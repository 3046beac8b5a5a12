#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "channels/channel_ids.h"
#include "channels/channel_log.h"
#include "channels/channel_quota.h"
#include "zam_platform/server/alarm.h"
#include "zam_platform/server/endpoint.h"
#include "zam_platform/server/log_context.h"

namespace zam_service {

/// Limits of what clients may leave open.
struct ChannelLimits {
    /// Channels of one client: above what a program has threads that transfer at once.
    std::size_t perClient = 64;
    /// A channel that nobody used for so long belongs to a transfer that was given up.
    std::chrono::milliseconds idle = std::chrono::minutes(10);
};

/// How long channels that nobody used are ended at a stretch: what they hold goes with them.
inline constexpr std::chrono::milliseconds kLongestIdleStretch{2};

/// The open channels of one sort, each with its `Content`. A channel belongs to the client that
/// opened it, and nobody else can use it. It ends when it is taken out, with its client's session,
/// when it was not used for too long, and when its client opens too many: then the oldest goes. On
/// the loop thread only.
template <typename Content>
class ChannelTable {
public:
    /// `sort` names the channels in the log: of static storage. `ids`, which is not owned, gives
    /// every table numbers of its own; nor is `quota`, which counts the channels of all tables.
    ChannelTable(asio::io_context& loop, ChannelIds& ids, ChannelQuota& quota,
                 std::string_view sort, ChannelLimits limits = {})
        : alarm_(loop, [this] { DropIdle(); }),
          ids_(ids),
          quota_(quota),
          sort_(sort),
          limits_(limits) {}

    /// Opens a channel and returns its number, which is above 0. Empty, which is logged, when the
    /// client's user has too many.
    std::optional<std::int64_t> Open(const zam_platform::ClientIdentity& client, Content content) {
        MakeRoom(client.token);
        std::optional<ChannelQuota::Place> place = quota_.Take(client.user);
        if (!place) {
            LogUserFull(sort_, client.user, quota_.PerUser());
            return std::nullopt;
        }
        const std::int64_t id = ids_.Next();
        const auto use =
            uses_.insert(uses_.end(), {std::chrono::steady_clock::now(), client.token, id});
        try {
            clients_[client.token].emplace(id, Entry{use, *std::move(place), std::move(content)});
        } catch (...) {
            uses_.erase(use);
            throw;
        }
        AwaitIdle();
        return id;
    }

    /// The content of a client's channel; null, which is logged, when the client has no such one.
    Content* Find(const zam_platform::SessionToken& client, std::int64_t id) {
        Entry* const entry = Look(client, id);
        if (entry == nullptr) {
            LogUnknownChannel(sort_, id);
            return nullptr;
        }
        entry->use->time = std::chrono::steady_clock::now();
        uses_.splice(uses_.end(), uses_, entry->use);
        return &entry->content;
    }

    /// The same without a record; this is no use of the channel.
    Content* Peek(const zam_platform::SessionToken& client, std::int64_t id) {
        Entry* const entry = Look(client, id);
        return entry == nullptr ? nullptr : &entry->content;
    }

    /// Ends a client's channel and returns its content; as `Find`.
    std::optional<Content> Take(const zam_platform::SessionToken& client, std::int64_t id) {
        Entry* const entry = Look(client, id);
        if (entry == nullptr) {
            LogUnknownChannel(sort_, id);
            return std::nullopt;
        }
        std::optional<Content> taken(std::move(entry->content));
        Erase(entry->use);
        return taken;
    }

    /// Calls `visit` with the content of each channel of a client. This is no use of the channels.
    template <typename Visit>
    void ForEach(const zam_platform::SessionToken& client, Visit visit) {
        const auto owner = clients_.find(client);
        if (owner != clients_.end()) {
            for (auto& [id, entry] : owner->second) {
                visit(entry.content);
            }
        }
    }

    /// Ends all channels of a client.
    void EndSession(const zam_platform::SessionToken& client) {
        const auto owner = clients_.find(client);
        if (owner == clients_.end()) {
            return;
        }
        const std::size_t ended = owner->second.size();
        for (const auto& [id, entry] : owner->second) {
            uses_.erase(entry.use);
        }
        clients_.erase(owner);
        if (ended != 0) {
            LogEndedSession(sort_, ended);
        }
    }

    std::size_t Count() const noexcept { return uses_.size(); }

private:
    /// The last use of a channel.
    struct Use {
        std::chrono::steady_clock::time_point time;
        zam_platform::SessionToken owner{};
        std::int64_t id = 0;
    };

    struct Entry {
        typename std::list<Use>::iterator use;
        ChannelQuota::Place place;
        Content content;
    };

    /// Numbers rise, so a client's first channel is its oldest.
    using Channels = std::map<std::int64_t, Entry>;

    Entry* Look(const zam_platform::SessionToken& client, std::int64_t id) {
        const auto owner = clients_.find(client);
        if (owner == clients_.end()) {
            return nullptr;
        }
        const auto found = owner->second.find(id);
        return found == owner->second.end() ? nullptr : &found->second;
    }

    /// A client without channels is none of this table's.
    void Erase(typename std::list<Use>::iterator use) {
        const auto owner = clients_.find(use->owner);
        owner->second.erase(use->id);
        uses_.erase(use);
        if (owner->second.empty()) {
            clients_.erase(owner);
        }
    }

    void MakeRoom(const zam_platform::SessionToken& client) {
        const auto owner = clients_.find(client);
        if (owner != clients_.end() && owner->second.size() >= limits_.perClient) {
            const auto oldest = owner->second.begin();
            LogCrowdedOut(sort_, oldest->first, limits_.perClient);
            Erase(oldest->second.use);
        }
    }

    /// Looks again when the channel that was not used for longest could be idle for too long.
    void AwaitIdle() noexcept {
        if (!alarm_.IsSet() && !uses_.empty()) {
            alarm_.RingAt(uses_.front().time + limits_.idle);
        }
    }

    void DropIdle() {
        const auto start = std::chrono::steady_clock::now();
        const auto latest = start - limits_.idle;
        // The rest at the next ring, which is due: others are served in between.
        while (!uses_.empty() && uses_.front().time <= latest &&
               std::chrono::steady_clock::now() - start < kLongestIdleStretch) {
            const Use& idle = uses_.front();
            const zam_platform::LogsForUser logsForUser(Look(idle.owner, idle.id)->place.User());
            LogIdle(sort_, idle.id, limits_.idle);
            Erase(uses_.begin());
        }
        AwaitIdle();
    }

    zam_platform::Alarm alarm_;
    ChannelIds& ids_;
    ChannelQuota& quota_;
    const std::string_view sort_;
    const ChannelLimits limits_;
    /// Ordered rather than hashed: clients choose their tokens, and could choose such as collide.
    std::map<zam_platform::SessionToken, Channels> clients_;
    std::list<Use> uses_;  ///< the least recent first
};

}  // namespace zam_service
