#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <optional>
#include <utility>

namespace zam_service {

/// Most channels, of all sorts together, that the clients of one user may have open.
inline constexpr std::size_t kMaxUserChannels = 65536;

/// The channels that users' clients have open. On the loop thread only.
class ChannelQuota {
public:
    /// One channel of a user, counted for as long as the object lives. The quota must outlive it.
    class Place {
    public:
        Place(Place&& other) noexcept
            : quota_(std::exchange(other.quota_, nullptr)), user_(other.user_) {}
        Place& operator=(Place&&) = delete;
        ~Place() {
            if (quota_ != nullptr) {
                quota_->Return(user_);
            }
        }

        uid_t User() const noexcept { return user_; }

    private:
        friend class ChannelQuota;
        Place(ChannelQuota& quota, uid_t user) noexcept : quota_(&quota), user_(user) {}

        ChannelQuota* quota_;
        uid_t user_;
    };

    explicit ChannelQuota(std::size_t perUser = kMaxUserChannels) : perUser_(perUser) {}

    /// Empty when the user's clients have all that they may have.
    std::optional<Place> Take(uid_t user);

    std::size_t PerUser() const noexcept { return perUser_; }
    std::size_t TakenBy(uid_t user) const;

private:
    void Return(uid_t user) noexcept;

    const std::size_t perUser_;
    std::map<uid_t, std::size_t> taken_;
};

}  // namespace zam_service
