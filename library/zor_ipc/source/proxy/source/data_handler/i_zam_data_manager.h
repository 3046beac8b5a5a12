#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "zam_connector/zam_policy.h"
#include "zam_connector/zam_product_settings.h"
#include "zam_connector/zam_server_data.h"
#include "zam_connector/zam_subscriptions.h"
#include "zam_connector/zam_updates_status.h"

namespace zam_connector::proxy {

/// The observers of changed data as the processor sees them. Thread-safe.
class IZamDataManager {
public:
    virtual ~IZamDataManager() = default;

    /// Each calls the live observers of its data, in the order of their cookies. What an observer
    /// throws goes through.
    virtual void NotifyPolicy(const std::pair<std::uint64_t, ZamPolicy>& policy) = 0;
    virtual void NotifySettings(const std::pair<std::uint64_t, ZamProductSettings>& settings) = 0;
    virtual void NotifySubscriptions(
        const std::pair<std::uint64_t, ZamSubscriptions>& subscriptions) = 0;
    virtual void NotifyZamServerData(const ZamServerData& serverData) = 0;
    virtual void NotifyReserveCert(const std::string& cert) = 0;
    virtual void NotifyZamUpdatesStatus(
        const std::pair<std::uint64_t, ZamUpdatesStatus>& status) = 0;
    virtual void NotifySettingsSynced(const std::uint64_t& hash) = 0;

    /// Whether there is a subscription, be its observer alive or not.
    virtual bool IsPolicySubscriberExist() const = 0;
    virtual bool IsSettingsSubscriberExist() const = 0;
    virtual bool IsSubscriptionsSubscriberExist() const = 0;
    virtual bool IsZamServerDataSubscriberExist() const = 0;
    virtual bool IsReserveCertSubscriberExist() const = 0;
    virtual bool IsZamUpdatesStatusExist() const = 0;
    virtual bool IsSettingsSyncedSubscriberExist() const = 0;
};

}  // namespace zam_connector::proxy
