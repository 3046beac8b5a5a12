#pragma once

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "channels/channel_ids.h"
#include "channels/channel_log.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Limits of what clients may leave open.
struct ChannelLimits {
    /// Channels of one client: above what a program has threads that transfer at once.
    std::size_t perClient = 64;
    /// A channel that nobody used for so long belongs to a transfer that was given up.
    std::chrono::milliseconds idle = std::chrono::minutes(10);
};

/// The open channels of one sort, each with its `Content`. A channel belongs to the client that
/// opened it, and nobody else can use it. It ends when it is taken out, with its client's session,
/// when it was not used for too long, and when its client opens too many: then the oldest goes. On
/// the loop thread only.
template <typename Content>
class ChannelTable {
public:
    /// `sort` names the channels in the log: of static storage. `ids`, which is not owned, gives
    /// every table numbers of its own.
    ChannelTable(asio::io_context& loop, ChannelIds& ids, std::string_view sort,
                 ChannelLimits limits = {})
        : timer_(loop), ids_(ids), sort_(sort), limits_(limits) {}

    /// Opens a channel and returns its number, which is above 0.
    std::int64_t Open(const zam_platform::SessionToken& client, Content content) {
        MakeRoom(client);
        const std::int64_t id = ids_.Next();
        channels_.emplace(id, Entry{.client = client,
                                    .lastUse = std::chrono::steady_clock::now(),
                                    .content = std::move(content)});
        if (channels_.size() == 1) {
            WaitForIdle();
        }
        return id;
    }

    /// The content of a client's channel; null, which is logged, when the client has no such one.
    Content* Find(const zam_platform::SessionToken& client, std::int64_t id) {
        const auto found = channels_.find(id);
        if (found == channels_.end() || found->second.client != client) {
            LogUnknownChannel(sort_, id);
            return nullptr;
        }
        found->second.lastUse = std::chrono::steady_clock::now();
        return &found->second.content;
    }

    /// Ends a client's channel and returns its content; as `Find`.
    std::optional<Content> Take(const zam_platform::SessionToken& client, std::int64_t id) {
        Content* const content = Find(client, id);
        if (content == nullptr) {
            return std::nullopt;
        }
        std::optional<Content> taken(std::move(*content));
        channels_.erase(id);
        return taken;
    }

    /// Calls `visit` with the content of each channel of a client. This is no use of the channels.
    template <typename Visit>
    void ForEach(const zam_platform::SessionToken& client, Visit visit) {
        for (auto& [id, entry] : channels_) {
            if (entry.client == client) {
                visit(entry.content);
            }
        }
    }

    /// Ends all channels of a client.
    void EndSession(const zam_platform::SessionToken& client) {
        const std::size_t ended = std::erase_if(
            channels_, [&client](const auto& entry) { return entry.second.client == client; });
        if (ended != 0) {
            LogEndedSession(sort_, ended);
        }
    }

    std::size_t Count() const noexcept { return channels_.size(); }

private:
    struct Entry {
        zam_platform::SessionToken client{};
        std::chrono::steady_clock::time_point lastUse;
        Content content;
    };

    /// Numbers rise, so a client's first channel in the map is its oldest.
    void MakeRoom(const zam_platform::SessionToken& client) {
        const auto isOf = [&client](const auto& entry) { return entry.second.client == client; };
        const auto count = std::count_if(channels_.begin(), channels_.end(), isOf);
        if (static_cast<std::size_t>(count) >= limits_.perClient) {
            const auto oldest = std::find_if(channels_.begin(), channels_.end(), isOf);
            LogCrowdedOut(sort_, oldest->first, limits_.perClient);
            channels_.erase(oldest);
        }
    }

    /// Looks again when the channel that was not used for longest could be idle for too long.
    void WaitForIdle() {
        if (channels_.empty()) {
            return;
        }
        const auto least = std::min_element(
            channels_.begin(), channels_.end(),
            [](const auto& a, const auto& b) { return a.second.lastUse < b.second.lastUse; });
        timer_.expires_at(least->second.lastUse + limits_.idle);
        timer_.async_wait([this](const std::error_code& error) {
            if (!error) {
                DropIdle();
                WaitForIdle();
            }
        });
    }

    void DropIdle() {
        const auto latest = std::chrono::steady_clock::now() - limits_.idle;
        for (auto entry = channels_.begin(); entry != channels_.end();) {
            if (entry->second.lastUse <= latest) {
                LogIdle(sort_, entry->first, limits_.idle);
                entry = channels_.erase(entry);
            } else {
                ++entry;
            }
        }
    }

    asio::steady_timer timer_;
    ChannelIds& ids_;
    const std::string_view sort_;
    const ChannelLimits limits_;
    std::map<std::int64_t, Entry> channels_;
};

}  // namespace zam_service
