#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "zam_connector/i_change_observer.h"
#include "zam_connector/subscription_cookie.h"
#include "zam_connector/zam_policy.h"
#include "zam_connector/zam_product_settings.h"
#include "zam_connector/zam_server_data.h"
#include "zam_connector/zam_subscriptions.h"
#include "zam_connector/zam_updates_status.h"

namespace zam_connector {

using IPolicyObserver = qor::observer::IChangeObserver<std::pair<std::uint64_t, ZamPolicy>, int>;
using IProductSettingsObserver =
    qor::observer::IChangeObserver<std::pair<std::uint64_t, ZamProductSettings>, int>;
using ISubscriptionsObserver =
    qor::observer::IChangeObserver<std::pair<std::uint64_t, ZamSubscriptions>, int>;
using IZamServerDataObserver = qor::observer::IChangeObserver<ZamServerData, int>;
using IZamReserveCertObserver = qor::observer::IChangeObserver<std::string, int>;
using IZamUpdatesStatusObserver =
    qor::observer::IChangeObserver<std::pair<std::uint64_t, ZamUpdatesStatus>, int>;
/// Told the hash of the settings that the server has from the product.
using ISettingsSyncedObserver = qor::observer::IChangeObserver<std::uint64_t, int>;

/// Tells observers of changes of the data that the connector service holds. What an observer gets
/// is the data as it is when it is told, with its hash where there is one; changes in quick
/// succession may be told as one. A change before the subscription is not told: subscribe first,
/// then fetch through `IZamDataProvider`.
///
/// Observers are called on a thread of the library, one at a time. They are not owned: one that has
/// expired is skipped. The first subscription starts the notifications. They stop when no observer
/// of policy, product settings and subscriptions is left at the end of an `Unsubscribe`, even when
/// observers of other data remain; the next subscription starts them again.
///
/// Operations return a result code (`zam_connector/result_code.h`) and never throw. They may block
/// on the service, and `Unsubscribe` also until an observer that is being called returns; inside an
/// observer they never wait for observers. Dropping the subscriber never does: observers that are
/// left of the notice being told are called after it. Thread-safe. The whole contract is in
/// `docs/notification.md`.
class IZamDataChangeSubscriber {
public:
    virtual ~IZamDataChangeSubscriber() = default;

    /// Adds an observer and writes what `Unsubscribe` takes to remove it. The same observer may be
    /// added more than once. 0 also when the notifications could not be started: the next
    /// subscription tries again. 0x8000004B for want of memory or threads.
    virtual int SubscribeOnPolicyChange(std::weak_ptr<IPolicyObserver> observer,
                                        SubscriptionCookie& cookie) noexcept = 0;
    virtual int SubscribeOnProductSettingsChange(std::weak_ptr<IProductSettingsObserver> observer,
                                                 SubscriptionCookie& cookie) noexcept = 0;
    virtual int SubscribeOnSubscriptionsChange(std::weak_ptr<ISubscriptionsObserver> observer,
                                               SubscriptionCookie& cookie) noexcept = 0;
    virtual int SubscribeOnZamServerDataChange(std::weak_ptr<IZamServerDataObserver> observer,
                                               SubscriptionCookie& cookie) noexcept = 0;
    virtual int SubscribeOnZamReserveCertChange(std::weak_ptr<IZamReserveCertObserver> observer,
                                                SubscriptionCookie& cookie) noexcept = 0;
    virtual int SubscribeOnZamUpdatesStatusChange(std::weak_ptr<IZamUpdatesStatusObserver> observer,
                                                  SubscriptionCookie& cookie) noexcept = 0;
    virtual int SubscribeOnSettingsSynced(std::weak_ptr<ISettingsSyncedObserver> observer,
                                          SubscriptionCookie& cookie) noexcept = 0;

    /// Removes the observer. 0 also when the cookie is not known. An observer that is being called
    /// on another thread has returned when this returns, if the notifications stopped with it; else
    /// it may still be called once for a change under way.
    virtual int Unsubscribe(const SubscriptionCookie& cookie) noexcept = 0;
};

}  // namespace zam_connector
