#pragma once

#include <cstdint>
#include <vector>

#include "link/connector_link.h"
#include "notices/notice_board.h"
#include "vocabulary/notice_kinds.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// What the service tells its clients by itself: changes of data, and of the link's state. On the
/// loop thread only.
class Notices {
public:
    /// `link` is not owned and must outlive this object, which begins to observe it.
    explicit Notices(ConnectorLink& link);
    Notices(const Notices&) = delete;
    Notices& operator=(const Notices&) = delete;

    /// Tells that data of a kind is other than it was; the state of the link is told by itself.
    void Tell(zam_vocabulary::NoticeKind kind) noexcept {
        data_.Tell(static_cast<std::uint32_t>(kind));
    }

    /// Ends the registrations of a client that has gone.
    void EndSession(const zam_platform::SessionToken& client);

    NoticeBoard& Data() noexcept { return data_; }
    NoticeBoard& States() noexcept { return states_; }

private:
    NoticeBoard data_;
    NoticeBoard states_;
};

}  // namespace zam_service
