#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "data_handler/i_data_handler.h"
#include "data_handler/i_pipeline_owner.h"
#include "data_handler/i_zam_data_manager.h"
#include "observer_group.h"
#include "task_gate.h"
#include "zam_connector/i_zam_data_change_subscriber.h"

namespace zam_connector::proxy {

/// `IZamDataChangeSubscriber` over the pipeline of changed data. Always owned by a
/// `std::shared_ptr`; the pipeline refers to it weakly. Thread-safe.
class ZamDataChangeSubscriberProxy final
    : public IZamDataChangeSubscriber,
      public IZamDataManager,
      public IPipelineOwner,
      public std::enable_shared_from_this<ZamDataChangeSubscriberProxy> {
public:
    /// Throws `qel::CheckFailedException` when there is no handler.
    explicit ZamDataChangeSubscriberProxy(std::shared_ptr<IDataHandler<IZamDataManager>> handler);

    /// Stops the pipeline when it runs.
    ~ZamDataChangeSubscriberProxy() override;

    int SubscribeOnPolicyChange(std::weak_ptr<IPolicyObserver> observer,
                                SubscriptionCookie& cookie) noexcept override;
    int SubscribeOnProductSettingsChange(std::weak_ptr<IProductSettingsObserver> observer,
                                         SubscriptionCookie& cookie) noexcept override;
    int SubscribeOnSubscriptionsChange(std::weak_ptr<ISubscriptionsObserver> observer,
                                       SubscriptionCookie& cookie) noexcept override;
    int SubscribeOnZamServerDataChange(std::weak_ptr<IZamServerDataObserver> observer,
                                       SubscriptionCookie& cookie) noexcept override;
    int SubscribeOnZamReserveCertChange(std::weak_ptr<IZamReserveCertObserver> observer,
                                        SubscriptionCookie& cookie) noexcept override;
    int SubscribeOnZamUpdatesStatusChange(std::weak_ptr<IZamUpdatesStatusObserver> observer,
                                          SubscriptionCookie& cookie) noexcept override;
    int SubscribeOnSettingsSynced(std::weak_ptr<ISettingsSyncedObserver> observer,
                                  SubscriptionCookie& cookie) noexcept override;
    int Unsubscribe(const SubscriptionCookie& cookie) noexcept override;

    void NotifyPolicy(const std::pair<std::uint64_t, ZamPolicy>& policy) override;
    void NotifySettings(const std::pair<std::uint64_t, ZamProductSettings>& settings) override;
    void NotifySubscriptions(
        const std::pair<std::uint64_t, ZamSubscriptions>& subscriptions) override;
    void NotifyZamServerData(const ZamServerData& serverData) override;
    void NotifyReserveCert(const std::string& cert) override;
    void NotifyZamUpdatesStatus(const std::pair<std::uint64_t, ZamUpdatesStatus>& status) override;
    void NotifySettingsSynced(const std::uint64_t& hash) override;

    bool IsPolicySubscriberExist() const override;
    bool IsSettingsSubscriberExist() const override;
    bool IsSubscriptionsSubscriberExist() const override;
    bool IsZamServerDataSubscriberExist() const override;
    bool IsReserveCertSubscriberExist() const override;
    bool IsZamUpdatesStatusExist() const override;
    bool IsSettingsSyncedSubscriberExist() const override;

    void KeepForThreads(const std::shared_ptr<const void>& object) override;

private:
    struct Operation;

    /// What a subscription or its end has to see to, and what it logs when that fails.
    struct Task {
        int (ZamDataChangeSubscriberProxy::*check)();
        const Operation* operation;
    };

    template <typename T>
    int Subscribe(ObserverGroup<T>& group,
                  std::weak_ptr<qor::observer::IChangeObserver<T, int>> observer,
                  SubscriptionCookie& cookie, const Operation& operation) noexcept;

    int PassGate(const Task& task);
    int CheckStatesAndStartTaskHandler();
    int CheckStatesAndStopTaskHandler();
    bool IsStopNeeded() const;

    const std::shared_ptr<IDataHandler<IZamDataManager>> handler_;
    std::atomic<std::uint64_t> cookieCounter_{0};
    ObserverGroup<std::pair<std::uint64_t, ZamPolicy>> policy_{cookieCounter_};
    ObserverGroup<std::pair<std::uint64_t, ZamProductSettings>> productSettings_{cookieCounter_};
    ObserverGroup<std::pair<std::uint64_t, ZamSubscriptions>> subscriptions_{cookieCounter_};
    ObserverGroup<std::pair<std::uint64_t, ZamUpdatesStatus>> updatesStatus_{cookieCounter_};
    ObserverGroup<ZamServerData> serverData_{cookieCounter_};
    ObserverGroup<std::string> reserveCert_{cookieCounter_};
    ObserverGroup<std::uint64_t> settingsSynced_{cookieCounter_};
    TaskGate<Task> taskGate_;      // never entered with a group's mutex held
    bool handlerStarted_ = false;  // belongs to who has the gate
};

}  // namespace zam_connector::proxy
