#pragma once

#include <memory>
#include <vector>

#include "command.h"
#include "watch/notice_queue.h"

namespace zamctl {

/// The subscriptions of a watch, from construction to destruction.
class Observation {
public:
    /// Subscribes to every kind. Throws `CallFailure`. `connector`'s interfaces and `queue` must
    /// outlive the object.
    Observation(Context& context, const ConnectorInterfaces& connector,
                const std::vector<NoticeKind>& kinds, NoticeQueue& queue);
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

    /// Closes the queue and unsubscribes. Blocks as `Unsubscribe` does.
    ~Observation();

private:
    void Subscribe(Context& context, NoticeKind kind, NoticeQueue& queue);
    void SubscribeAnchor(Context& context);
    void End() noexcept;

    zam_connector::IZamDataChangeSubscriber& data_;
    zam_connector::IZamConnStateSubscriber& state_;
    NoticeQueue& queue_;
    std::vector<std::shared_ptr<void>> observers_;
    std::vector<zam_connector::SubscriptionCookie> dataCookies_;
    std::vector<zam_connector::SubscriptionCookie> stateCookies_;
};

}  // namespace zamctl
