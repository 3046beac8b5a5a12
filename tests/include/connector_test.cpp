#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

#include "data_handler/i_zam_conn_state_manager.h"
#include "data_handler/i_zam_data_manager.h"
#include "qor/utils/cancellation_token.h"
#include "virtual_slot.h"
#include "zam_connector/zam_connector.h"
#include "zam_connector_proxy.h"

// What a client's compiled code relies on, of the connector and the subscribers.

namespace zam_connector {
namespace {

// Slots 0 and 1 are those of the destructor, which the interfaces declare first.

TEST(VirtualSlots, OfTheConnectorStandInOrder) {
    EXPECT_EQ(SlotOf(&IZamConnector::GetZamController), 2);
    EXPECT_EQ(SlotOf(&IZamConnector::GetSettingsHolder), 3);
    EXPECT_EQ(SlotOf(&IZamConnector::GetStateChangeSubscriber), 4);
    EXPECT_EQ(SlotOf(&IZamConnector::GetCommandSender), 5);
    EXPECT_EQ(SlotOf(&IZamConnector::GetDataProvider), 6);
    EXPECT_EQ(SlotOf(&IZamConnector::GetDataChangeSubscriber), 7);
    EXPECT_EQ(SlotOf(&IZamConnector::GetProductDataHolder), 8);
    EXPECT_EQ(SlotOf(&IZamConnector::GetFileDownloader), 9);
    EXPECT_EQ(SlotOf(&IZamConnector::GetZamLocaleInfo), 10);
    EXPECT_EQ(SlotOf(&IZamConnector::GetZamLocationInfo), 11);
    EXPECT_EQ(SlotOf(&IZamConnector::GetClientCertsDownloader), 12);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetZamController), 2);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetSettingsHolder), 3);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetStateChangeSubscriber), 4);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetCommandSender), 5);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetDataProvider), 6);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetDataChangeSubscriber), 7);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetProductDataHolder), 8);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetFileDownloader), 9);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetZamLocaleInfo), 10);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetZamLocationInfo), 11);
    EXPECT_EQ(SlotOf(&proxy::ZamConnectorProxy::GetClientCertsDownloader), 12);
}

TEST(VirtualSlots, OfTheSubscribersStandInOrder) {
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnPolicyChange), 2);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnProductSettingsChange), 3);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnSubscriptionsChange), 4);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnZamServerDataChange), 5);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnZamReserveCertChange), 6);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnZamUpdatesStatusChange), 7);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnSettingsSynced), 8);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::Unsubscribe), 9);
    EXPECT_EQ(SlotOf(&IZamConnStateSubscriber::SubscribeOnStateChange), 2);
    EXPECT_EQ(SlotOf(&IZamConnStateSubscriber::Unsubscribe), 3);
    using Observer = qor::observer::IChangeObserver<ZamConnectorState, int>;
    EXPECT_EQ(SlotOf(&Observer::OnChange), 2);
}

TEST(VirtualSlots, OfTheManagersStandInOrder) {
    using proxy::IZamDataManager;
    EXPECT_EQ(SlotOf(&IZamDataManager::NotifyPolicy), 2);
    EXPECT_EQ(SlotOf(&IZamDataManager::NotifySettings), 3);
    EXPECT_EQ(SlotOf(&IZamDataManager::NotifySubscriptions), 4);
    EXPECT_EQ(SlotOf(&IZamDataManager::NotifyZamServerData), 5);
    EXPECT_EQ(SlotOf(&IZamDataManager::NotifyReserveCert), 6);
    EXPECT_EQ(SlotOf(&IZamDataManager::NotifyZamUpdatesStatus), 7);
    EXPECT_EQ(SlotOf(&IZamDataManager::NotifySettingsSynced), 8);
    EXPECT_EQ(SlotOf(&IZamDataManager::IsPolicySubscriberExist), 9);
    EXPECT_EQ(SlotOf(&IZamDataManager::IsSettingsSubscriberExist), 10);
    EXPECT_EQ(SlotOf(&IZamDataManager::IsSubscriptionsSubscriberExist), 11);
    EXPECT_EQ(SlotOf(&IZamDataManager::IsZamServerDataSubscriberExist), 12);
    EXPECT_EQ(SlotOf(&IZamDataManager::IsReserveCertSubscriberExist), 13);
    EXPECT_EQ(SlotOf(&IZamDataManager::IsZamUpdatesStatusExist), 14);
    EXPECT_EQ(SlotOf(&IZamDataManager::IsSettingsSyncedSubscriberExist), 15);
    EXPECT_EQ(SlotOf(&proxy::IZamConnStateManager::SetZamConnectorState), 2);
}

TEST(VirtualSlots, OfTheCancellationTokenStandInOrder) {
    using qor::utils::ICancellationToken;
    using Action = ICancellationToken::ExecutionAction;
    using Get = int (ICancellationToken::*)(Action&) const;
    using Wait = int (ICancellationToken::*)(Action&, std::chrono::milliseconds) const;
    EXPECT_EQ(SlotOf(static_cast<Get>(&ICancellationToken::GetExecutionAction)), 2);
    EXPECT_EQ(SlotOf(static_cast<Wait>(&ICancellationToken::GetExecutionAction)), 3);
    EXPECT_EQ(SlotOf(&ICancellationToken::Pause), 4);
    EXPECT_EQ(SlotOf(&ICancellationToken::Resume), 5);
    EXPECT_EQ(SlotOf(&ICancellationToken::IsPaused), 6);
    EXPECT_EQ(SlotOf(&ICancellationToken::IsCanceled), 7);
    static_assert(sizeof(Action) == 4);
    static_assert(static_cast<int>(Action::Continue) == 0);
    static_assert(static_cast<int>(Action::Pause) == 1);
    static_assert(static_cast<int>(Action::Cancel) == 2);
}

template <typename Interface>
using Accessor = int (IZamConnector::*)(std::shared_ptr<Interface>&) noexcept;

static_assert(
    std::is_same_v<decltype(&IZamConnector::GetZamController), Accessor<IZamConnController>>);
static_assert(
    std::is_same_v<decltype(&IZamConnector::GetSettingsHolder), Accessor<IZamConnSettingsHolder>>);
static_assert(std::is_same_v<decltype(&IZamConnector::GetStateChangeSubscriber),
                             Accessor<IZamConnStateSubscriber>>);
static_assert(
    std::is_same_v<decltype(&IZamConnector::GetCommandSender), Accessor<IZamConnCommandSender>>);
static_assert(
    std::is_same_v<decltype(&IZamConnector::GetDataProvider), Accessor<IZamDataProvider>>);
static_assert(std::is_same_v<decltype(&IZamConnector::GetDataChangeSubscriber),
                             Accessor<IZamDataChangeSubscriber>>);
static_assert(
    std::is_same_v<decltype(&IZamConnector::GetProductDataHolder), Accessor<IProductDataHolder>>);
static_assert(
    std::is_same_v<decltype(&IZamConnector::GetFileDownloader), Accessor<IZamFileDownloader>>);
static_assert(std::is_same_v<decltype(&IZamConnector::GetZamLocaleInfo),
                             Accessor<zam_locale::IZamLocaleInfo>>);
static_assert(std::is_same_v<decltype(&IZamConnector::GetZamLocationInfo),
                             Accessor<zam_locale::IZamLocationInfo>>);
static_assert(std::is_same_v<decltype(&IZamConnector::GetClientCertsDownloader),
                             Accessor<IZamClientCertsDownloader>>);

static_assert(std::is_same_v<decltype(&CreateZamConnector),
                             int (*)(std::shared_ptr<IZamConnector>&,
                                     const ZamConnCreateParameters&) noexcept>);
static_assert(
    std::is_same_v<decltype(&CreateZamFileDownloader),
                   int (*)(const std::string&, std::shared_ptr<IZamFileDownloader>&) noexcept>);
static_assert(
    std::is_same_v<decltype(&IZamDataChangeSubscriber::Unsubscribe),
                   int (IZamDataChangeSubscriber::*)(const SubscriptionCookie&) noexcept>);
static_assert(std::is_abstract_v<IZamConnector> && std::has_virtual_destructor_v<IZamConnector> &&
              sizeof(IZamConnector) == sizeof(void*));
static_assert(sizeof(SubscriptionCookie) == sizeof(std::uint64_t));

}  // namespace
}  // namespace zam_connector
