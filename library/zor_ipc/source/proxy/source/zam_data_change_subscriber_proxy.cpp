#include "zam_data_change_subscriber_proxy.h"

#include <exception>

#include "common/log.h"
#include "qel/exception.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "zam_data_change_subscriber_proxy";

using FailureText = fmt::format_string<const char* const&>;

}  // namespace

/// A public operation, and its text for what was thrown on the way.
struct ZamDataChangeSubscriberProxy::Operation {
    const char* name;
    FailureText failure;

    int Failed(const std::exception& exception) const noexcept {
        *VdZorTransport_LastStatus() = 0;  // what failed is not the transport
        return common::Failure(common::Here(kSourceFile, name), failure, exception.what());
    }

    static const Operation kPolicy;
    static const Operation kProductSettings;
    static const Operation kSubscriptions;
    static const Operation kServerData;
    static const Operation kReserveCert;
    static const Operation kUpdatesStatus;
    static const Operation kSettingsSynced;
    static const Operation kUnsubscribe;
};

using Proxy = ZamDataChangeSubscriberProxy;

constexpr Proxy::Operation Proxy::Operation::kPolicy{
    "SubscribeOnPolicyChange",
    "ZamDataChangeSubscriberProxy: SubscribeOnPolicyChange threw exception - {}"};
constexpr Proxy::Operation Proxy::Operation::kProductSettings{
    "SubscribeOnProductSettingsChange",
    "ZamDataChangeSubscriberProxy: SubscribeOnProductSettingsChange threw exception - {}"};
constexpr Proxy::Operation Proxy::Operation::kSubscriptions{
    "SubscribeOnSubscriptionsChange",
    "ZamDataChangeSubscriberProxy: SubscribeOnSubscriptionsChange threw exception - {}"};
constexpr Proxy::Operation Proxy::Operation::kServerData{
    "SubscribeOnZamServerDataChange",
    "ZamDataChangeSubscriberProxy: SubscribeOnZamServerDataChange threw exception - {}"};
constexpr Proxy::Operation Proxy::Operation::kReserveCert{
    "SubscribeOnZamReserveCertChange",
    "ZamDataChangeSubscriberProxy: SubscribeOnZamReserveCertChange threw exception - {}"};
/// The words of another operation are part of the contract.
constexpr Proxy::Operation Proxy::Operation::kUpdatesStatus{
    "SubscribeOnZamUpdatesStatusChange",
    "SubscribeOnZamUpdatesStatusChange: SubscribeOnZamReserveCertChange threw exception - {}"};
constexpr Proxy::Operation Proxy::Operation::kSettingsSynced{
    "SubscribeOnSettingsSynced",
    "ZamDataChangeSubscriberProxy: SubscribeOnSettingsSynced threw exception - {}"};
constexpr Proxy::Operation Proxy::Operation::kUnsubscribe{
    "Unsubscribe", "ZamDataChangeSubscriberProxy: Unsubscribe threw exception - {}"};

ZamDataChangeSubscriberProxy::ZamDataChangeSubscriberProxy(
    std::shared_ptr<IDataHandler<IZamDataManager>> handler)
    : handler_(std::move(handler)) {
    if (!handler_) {
        throw qel::CheckFailedException(kSourceFile, __LINE__) << "data handler ptr is null";
    }
}

ZamDataChangeSubscriberProxy::~ZamDataChangeSubscriberProxy() {
    try {
        if (handlerStarted_) {
            handler_->Stop();
        }
    } catch (const std::exception& exception) {
        common::Log(zor::logger::kLevelError,
                    common::Here(kSourceFile, "~ZamDataChangeSubscriberProxy"),
                    "ZamDataChangeSubscriberProxy: Stop threw exception: {}", exception.what());
    }
}

int ZamDataChangeSubscriberProxy::SubscribeOnPolicyChange(std::weak_ptr<IPolicyObserver> observer,
                                                          SubscriptionCookie& cookie) noexcept {
    return Subscribe(policy_, std::move(observer), cookie, Operation::kPolicy);
}

int ZamDataChangeSubscriberProxy::SubscribeOnProductSettingsChange(
    std::weak_ptr<IProductSettingsObserver> observer, SubscriptionCookie& cookie) noexcept {
    return Subscribe(productSettings_, std::move(observer), cookie, Operation::kProductSettings);
}

int ZamDataChangeSubscriberProxy::SubscribeOnSubscriptionsChange(
    std::weak_ptr<ISubscriptionsObserver> observer, SubscriptionCookie& cookie) noexcept {
    return Subscribe(subscriptions_, std::move(observer), cookie, Operation::kSubscriptions);
}

int ZamDataChangeSubscriberProxy::SubscribeOnZamServerDataChange(
    std::weak_ptr<IZamServerDataObserver> observer, SubscriptionCookie& cookie) noexcept {
    return Subscribe(serverData_, std::move(observer), cookie, Operation::kServerData);
}

int ZamDataChangeSubscriberProxy::SubscribeOnZamReserveCertChange(
    std::weak_ptr<IZamReserveCertObserver> observer, SubscriptionCookie& cookie) noexcept {
    return Subscribe(reserveCert_, std::move(observer), cookie, Operation::kReserveCert);
}

int ZamDataChangeSubscriberProxy::SubscribeOnZamUpdatesStatusChange(
    std::weak_ptr<IZamUpdatesStatusObserver> observer, SubscriptionCookie& cookie) noexcept {
    return Subscribe(updatesStatus_, std::move(observer), cookie, Operation::kUpdatesStatus);
}

int ZamDataChangeSubscriberProxy::SubscribeOnSettingsSynced(
    std::weak_ptr<ISettingsSyncedObserver> observer, SubscriptionCookie& cookie) noexcept {
    return Subscribe(settingsSynced_, std::move(observer), cookie, Operation::kSettingsSynced);
}

template <typename T>
int ZamDataChangeSubscriberProxy::Subscribe(
    ObserverGroup<T>& group, std::weak_ptr<qor::observer::IChangeObserver<T, int>> observer,
    SubscriptionCookie& cookie, const Operation& operation) noexcept {
    *VdZorTransport_LastStatus() = 0;  // of an earlier operation
    try {
        cookie = group.Add(std::move(observer));
        return PassGate(
            {&ZamDataChangeSubscriberProxy::CheckStatesAndStartTaskHandler, &operation});
    } catch (const std::exception& exception) {
        return operation.Failed(exception);
    }
}

int ZamDataChangeSubscriberProxy::Unsubscribe(const SubscriptionCookie& cookie) noexcept {
    *VdZorTransport_LastStatus() = 0;
    try {
        policy_.Remove(cookie);
        productSettings_.Remove(cookie);
        subscriptions_.Remove(cookie);
        serverData_.Remove(cookie);
        reserveCert_.Remove(cookie);
        serverData_.Remove(cookie);  // the contract's sequence has it twice
        updatesStatus_.Remove(cookie);
        settingsSynced_.Remove(cookie);
        return PassGate({&ZamDataChangeSubscriberProxy::CheckStatesAndStopTaskHandler,
                         &Operation::kUnsubscribe});
    } catch (const std::exception& exception) {
        return Operation::kUnsubscribe.Failed(exception);
    }
}

int ZamDataChangeSubscriberProxy::PassGate(const Task& task) {
    return taskGate_.Pass(
        task, [this](const Task& own) { return (this->*own.check)(); },
        [this](const Task& left) {
            try {
                (this->*left.check)();
            } catch (const std::exception& exception) {
                left.operation->Failed(exception);
            }
        });
}

int ZamDataChangeSubscriberProxy::CheckStatesAndStartTaskHandler() {
    if (handlerStarted_) {
        return qel::kNoError;
    }
    const int result = handler_->Start(weak_from_this());
    if (result < 0) {
        common::Failure(common::Here(kSourceFile, "CheckStatesAndStartTaskHandler"),
                        "ZamDataChangeSubscriberProxy: Start terminated with error {}", result);
    }
    handlerStarted_ = result >= 0;
    return qel::kNoError;
}

int ZamDataChangeSubscriberProxy::CheckStatesAndStopTaskHandler() {
    if (handlerStarted_ && IsStopNeeded()) {
        handler_->Stop();
        handlerStarted_ = false;  // whatever came of it
    }
    return qel::kNoError;
}

/// Observers of the four other kinds do not keep the pipeline running.
bool ZamDataChangeSubscriberProxy::IsStopNeeded() const {
    return policy_.IsEmpty() && productSettings_.IsEmpty() && subscriptions_.IsEmpty();
}

void ZamDataChangeSubscriberProxy::NotifyPolicy(const std::pair<std::uint64_t, ZamPolicy>& policy) {
    policy_.Notify(policy);
}

void ZamDataChangeSubscriberProxy::NotifySettings(
    const std::pair<std::uint64_t, ZamProductSettings>& settings) {
    productSettings_.Notify(settings);
}

void ZamDataChangeSubscriberProxy::NotifySubscriptions(
    const std::pair<std::uint64_t, ZamSubscriptions>& subscriptions) {
    subscriptions_.Notify(subscriptions);
}

void ZamDataChangeSubscriberProxy::NotifyZamServerData(const ZamServerData& serverData) {
    serverData_.Notify(serverData);
}

void ZamDataChangeSubscriberProxy::NotifyReserveCert(const std::string& cert) {
    reserveCert_.Notify(cert);
}

void ZamDataChangeSubscriberProxy::NotifyZamUpdatesStatus(
    const std::pair<std::uint64_t, ZamUpdatesStatus>& status) {
    updatesStatus_.Notify(status);
}

void ZamDataChangeSubscriberProxy::NotifySettingsSynced(const std::uint64_t& hash) {
    settingsSynced_.Notify(hash);
}

bool ZamDataChangeSubscriberProxy::IsPolicySubscriberExist() const {
    return !policy_.IsEmpty();
}

bool ZamDataChangeSubscriberProxy::IsSettingsSubscriberExist() const {
    return !productSettings_.IsEmpty();
}

bool ZamDataChangeSubscriberProxy::IsSubscriptionsSubscriberExist() const {
    return !subscriptions_.IsEmpty();
}

bool ZamDataChangeSubscriberProxy::IsZamServerDataSubscriberExist() const {
    return !serverData_.IsEmpty();
}

bool ZamDataChangeSubscriberProxy::IsReserveCertSubscriberExist() const {
    return !reserveCert_.IsEmpty();
}

bool ZamDataChangeSubscriberProxy::IsZamUpdatesStatusExist() const {
    return !updatesStatus_.IsEmpty();
}

bool ZamDataChangeSubscriberProxy::IsSettingsSyncedSubscriberExist() const {
    return !settingsSynced_.IsEmpty();
}

void ZamDataChangeSubscriberProxy::KeepForThreads(const std::shared_ptr<const void>& object) {
    handler_->KeepForThreads(object);
}

}  // namespace zam_connector::proxy
