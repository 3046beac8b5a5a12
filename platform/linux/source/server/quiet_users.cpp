#include "server/quiet_users.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <memory>

#include "server/server_connection.h"

namespace zam_platform {

QuietUsers::Turn QuietUsers::Enter(ServerConnection& connection, uid_t user) {
    std::list<Place> place(1);
    std::list<User*> order(1);
    User& own = users_[user];
    if (own.places.empty()) {
        own.id = user;
        order.front() = &own;
        own.order = order.begin();
        order_.splice(order_.begin(), order);
    }
    place.front() = {.connection = &connection, .user = &own, .servedAt = work_};
    own.places.splice(own.places.begin(), place);
    return own.places.begin();
}

void QuietUsers::Leave(Turn turn) noexcept {
    User& user = *turn->user;
    user.places.erase(turn);
    if (user.places.empty()) {
        order_.erase(user.order);
        users_.erase(user.id);
    }
}

void QuietUsers::OnRead(Turn turn, std::size_t bytes) noexcept {
    const std::uint64_t before = turn->servedAt;
    Count(*turn, bytes);
    turn->servedAt = work_;  // in its turn, which says that the loop has come round
    User& user = *turn->user;
    user.places.splice(user.places.begin(), user.places, turn);
    order_.splice(order_.begin(), order_, user.order);
    if (work_ - before <= kWorkBeforeLook) {
        // What was ready when this connection was served before has been served since.
        Restart();
    } else if (work_ - workAtLook_ >= kWorkBeforeLook && users_.size() > 1) {
        Look();
    }
}

void QuietUsers::Count(Place& place, std::size_t bytes) noexcept {
    const std::uint64_t work = WorkOf(bytes);
    work_ += work;
    User& user = *place.user;
    if (user.look != look_) {
        user.look = look_;
        user.work = 0;
    }
    user.work += work;
    most_ = std::max(most_, user.work);
}

void QuietUsers::OnServedFromMemory(Turn turn, std::size_t bytes) noexcept {
    const std::uint64_t before = work_;
    Count(*turn, bytes);
    work_ = before;
}

/// Had at most half of what the busiest user had since the last look.
bool QuietUsers::IsQuiet(const User& user) const noexcept {
    return user.look != look_ || user.work <= most_ / 2;
}

void QuietUsers::Restart() noexcept {
    ++look_;
    most_ = 0;
    workAtLook_ = work_;
}

void QuietUsers::Look() noexcept {
    std::array<pollfd, kMostAsked> asked;
    std::array<ServerConnection*, kMostAsked> connections;
    std::size_t count = 0;
    std::size_t visited = 0;
    for (const User* const user : order_) {
        if (!IsQuiet(*user)) {
            continue;
        }
        std::size_t ofUser = 0;
        for (const Place& place : user->places) {
            if (visited == kMostAsked || ofUser == kMostAskedOfUser) {
                break;
            }
            ++visited;
            ++ofUser;
            if (place.connection->MayServeEarly()) {
                asked[count] = {.fd = place.connection->Descriptor(),
                                .events = POLLIN | POLLRDHUP,
                                .revents = 0};
                connections[count++] = place.connection;
            }
        }
    }
    Restart();
    if (count == 0 || ::poll(asked.data(), count, 0) <= 0) {
        return;
    }
    // Serving one may end others.
    std::array<std::shared_ptr<ServerConnection>, kMostAsked> ready;
    std::size_t readyCount = 0;
    for (std::size_t index = 0; index < count; ++index) {
        // An end keeps its place in the order, and so does what stands before it.
        if (asked[index].revents == POLLIN) {
            ready[readyCount++] = connections[index]->shared_from_this();
        }
    }
    for (std::size_t index = 0; index < readyCount; ++index) {
        ready[index]->ServeEarly();
    }
}

}  // namespace zam_platform
