#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>

namespace zam_platform {

class ServerConnection;

/// Keeps what the many connections of a busy user have pending from standing in front of another
/// user's single call. The loop serves connections in the order in which they became ready, whoever
/// they belong to; when a round of that gets long, the connections of users that had little of it
/// are asked between two others, and those with a whole frame are served.
///
/// Work is counted, not timed. A connection that comes again soon shows that the loop is quickly
/// round, so nobody waits long, and nobody is asked: a service that is lightly loaded makes no
/// system call for this. Only `Enter` takes memory. On the loop thread only.
class QuietUsers {
    struct User;

    struct Place {
        ServerConnection* connection = nullptr;
        User* user = nullptr;
        std::uint64_t servedAt = 0;  ///< how much work had been done when it had its turn
    };

public:
    /// A connection's place among those of its user.
    using Turn = std::list<Place>::iterator;

    /// Work is counted in reads and answers, or in parts of this size where they are larger.
    static constexpr std::size_t kPartBytes = 4096;

    /// Work in front of a look at quiet users: 32 short calls, which take some 0.2 ms.
    static constexpr std::uint64_t kWorkBeforeLook = 64;

    /// Connections that one look asks, those that were served last before others, and those of one
    /// user among them.
    static constexpr std::size_t kMostAsked = 64;
    static constexpr std::size_t kMostAskedOfUser = 16;

    QuietUsers() = default;
    QuietUsers(const QuietUsers&) = delete;
    QuietUsers& operator=(const QuietUsers&) = delete;

    /// Takes a connection among those of its user, until `Leave`. Throws `std::bad_alloc`.
    Turn Enter(ServerConnection& connection, uid_t user);
    void Leave(Turn turn) noexcept;

    /// A connection was read from in its turn, and what came was handled. May serve others.
    void OnRead(Turn turn, std::size_t bytes) noexcept;

    /// A connection was served out of its turn.
    void OnServedEarly(Turn turn, std::size_t bytes) noexcept { Count(*turn, bytes); }

    /// A connection's call was served from memory. That is work of its user, but nobody's turn is
    /// behind it: the loop is run between such calls.
    void OnServedFromMemory(Turn turn, std::size_t bytes) noexcept;

    void OnAnswer(std::size_t bytes) noexcept { work_ += WorkOf(bytes); }

private:
    struct User {
        uid_t id = 0;
        std::list<Place> places;           ///< the one that was served last is the first
        std::list<User*>::iterator order;  ///< in `order_`
        std::uint64_t look = 0;            ///< the last look that its work was counted for
        std::uint64_t work = 0;
    };

    static std::uint64_t WorkOf(std::size_t bytes) noexcept { return 1 + bytes / kPartBytes; }
    void Count(Place& place, std::size_t bytes) noexcept;
    bool IsQuiet(const User& user) const noexcept;
    void Look() noexcept;
    void Restart() noexcept;

    std::map<uid_t, User> users_;  ///< that have connections here
    std::list<User*> order_;       ///< the one that was served last is the first
    std::uint64_t work_ = 0;
    std::uint64_t workAtLook_ = 0;
    std::uint64_t look_ = 1;  ///< number of the next look
    std::uint64_t most_ = 0;  ///< work of one user since the last
};

}  // namespace zam_platform
