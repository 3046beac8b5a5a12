#pragma once

#include <memory>

#include "zam_connector/i_change_observer.h"
#include "zam_connector/subscription_cookie.h"
#include "zam_connector/zam_connector_state.h"

namespace zam_connector {

using IZamConnStateObserver = qor::observer::IChangeObserver<ZamConnectorState, int>;

/// Tells observers of every change of the connector's link to the management server, in order,
/// none left out and none merged. The state at the time of the subscription is not told:
/// `IZamConnController::GetState` gives it.
///
/// Observers are called on a thread of the library, one at a time. They are not owned: one that has
/// expired is skipped. The first subscription starts the notifications, and the `Unsubscribe` that
/// leaves no subscription stops them.
///
/// Operations return a result code (`zam_connector/result_code.h`) and never throw. They may block
/// on the service, and `Unsubscribe` also until an observer that is being called returns; inside an
/// observer they never wait for observers. Dropping the subscriber never does: observers that are
/// left of the notice being told are called after it. Thread-safe. The whole contract is in
/// `docs/notification.md`.
class IZamConnStateSubscriber {
public:
    virtual ~IZamConnStateSubscriber() = default;

    /// Adds an observer and writes what `Unsubscribe` takes to remove it. When the notifications
    /// cannot be started the code says so; the observer is subscribed all the same, but they are
    /// not tried again before the last subscription has been removed. 0x8000004B also for want of
    /// memory or threads.
    virtual int SubscribeOnStateChange(std::weak_ptr<IZamConnStateObserver> observer,
                                       SubscriptionCookie& cookie) noexcept = 0;

    /// Removes the observer. 0 also when the cookie is not known. As for
    /// `IZamDataChangeSubscriber::Unsubscribe`, a call under way ends before or, when other
    /// observers remain, soon after.
    virtual int Unsubscribe(const SubscriptionCookie& cookie) noexcept = 0;
};

}  // namespace zam_connector
