#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "notices/notice_queue.h"
#include "notices/registration.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// The run of the service that an id comes from, which stands in an id's upper half: above 0, and
/// at most `kMaxNoticeEpoch`, so that an id is positive as a signed number too.
using NoticeEpoch = std::uint32_t;

inline constexpr unsigned kNoticeEpochShift = 16;
inline constexpr NoticeEpoch kMaxNoticeEpoch = 0x7FFF;

/// A random one.
NoticeEpoch NewNoticeEpoch();

/// Limits of what clients may register.
struct NoticeLimits {
    /// As many as a user may have connections, since each waits on one of its own.
    std::size_t perClient = 4096;
    std::size_t perUser = 8192;
    /// Ids of runs before that a client has unregistered; enough for every call that can still be
    /// on its way.
    std::size_t endedPerClient = 64;
};

/// Who is to be told what. A registration belongs to the client that made it, and ends with its
/// `Unregister` or its session. It begins with nothing to tell. One of a run before, which only its
/// client knows of, is taken up again when the client waits for it, and told everything that it may
/// have missed. One thread at a time; no I/O.
class NoticeBoard {
public:
    /// Values that are told to a registration of a run before, in order.
    using Missed = std::function<std::vector<std::uint32_t>()>;

    NoticeBoard(NoticeRules rules, NoticeEpoch epoch, Missed missed, NoticeLimits limits = {});
    NoticeBoard(const NoticeBoard&) = delete;
    NoticeBoard& operator=(const NoticeBoard&) = delete;

    /// The new registration's id; empty, which is logged, at a limit.
    std::optional<std::uint32_t> Register(const zam_platform::ClientIdentity& client);

    /// Takes a call that waits for a notice.
    void Wait(const zam_platform::ClientIdentity& client, std::uint32_t id,
              std::unique_ptr<NoticeWaiter> waiter);

    /// Ends a registration. Also one that is not known: a call that is still on its way for it
    /// finds it ended.
    void Unregister(const zam_platform::ClientIdentity& client, std::uint32_t id);

    /// Ends a registration whose id its client was perhaps not told, unless it has waited since: it
    /// could never give it back.
    void EndUntold(const zam_platform::ClientIdentity& client, std::uint32_t id);

    /// Tells a value to every registration.
    void Tell(std::uint32_t value) noexcept;

    /// Ends all registrations of a client.
    void EndSession(const zam_platform::SessionToken& client);

    /// Ends all registrations of all clients. Their calls end with their connections.
    void Clear();

    /// True when a notice was given to a registration and is not known to have come.
    bool HasInFlight(const zam_platform::SessionToken& client, std::uint32_t id) const;

    std::size_t Count() const noexcept { return count_; }

private:
    struct Session {
        uid_t user = 0;
        std::map<std::uint32_t, std::shared_ptr<Registration>> registrations;
        std::vector<std::uint32_t> ended;  ///< of runs before, the latest last
    };

    bool IsOfThisRun(std::uint32_t id) const noexcept;
    bool HasRoom(const zam_platform::ClientIdentity& client);
    std::uint32_t NextId(const zam_platform::SessionToken& client);
    std::shared_ptr<Registration> Add(const zam_platform::ClientIdentity& client, std::uint32_t id);
    void TellMissed(Registration& registration) const;
    /// Whether a wait for an unknown id is answered by taking the registration up again.
    bool MayTakeUp(const zam_platform::SessionToken& client, std::uint32_t id) const;
    void RememberEnd(Session& session, std::uint32_t id);
    std::shared_ptr<Registration> Find(const zam_platform::SessionToken& client,
                                       std::uint32_t id) const;

    const NoticeRules rules_;
    const NoticeEpoch epoch_;
    const Missed missed_;
    const NoticeLimits limits_;
    std::map<zam_platform::SessionToken, Session> sessions_;
    std::map<uid_t, std::size_t> perUser_;
    std::size_t count_ = 0;
    std::uint32_t lastSequence_ = 0;
};

}  // namespace zam_service
