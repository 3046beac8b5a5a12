// Places in virtual tables of what notifications are made of. Slots 0 and 1 are those of the
// destructor, which the interfaces declare first.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <type_traits>

#include "data_handler/i_data_handler.h"
#include "data_handler/i_data_processor.h"
#include "data_handler/i_data_provider.h"
#include "data_handler/i_data_subscriber.h"
#include "data_handler/i_zam_conn_state_manager.h"
#include "data_handler/i_zam_data_manager.h"
#include "include/virtual_slot.h"
#include "qor/utils/blocking_queue.h"
#include "qor/utils/cancellation_token.h"
#include "zam_connector/i_zam_conn_state_subscriber.h"
#include "zam_connector/i_zam_data_change_subscriber.h"

namespace zam_connector {
namespace {

using qor::utils::ICancellationToken;
using Action = ICancellationToken::ExecutionAction;

TEST(NotificationSlots, OfTheToken) {
    using Look = int (ICancellationToken::*)(Action&) const;
    using Wait = int (ICancellationToken::*)(Action&, std::chrono::milliseconds) const;
    EXPECT_EQ(SlotOf(static_cast<Look>(&ICancellationToken::GetExecutionAction)), 2);
    EXPECT_EQ(SlotOf(static_cast<Wait>(&ICancellationToken::GetExecutionAction)), 3);
    EXPECT_EQ(SlotOf(&ICancellationToken::Pause), 4);
    EXPECT_EQ(SlotOf(&ICancellationToken::Resume), 5);
    EXPECT_EQ(SlotOf(&ICancellationToken::IsPaused), 6);
    EXPECT_EQ(SlotOf(&ICancellationToken::IsCanceled), 7);
}

TEST(NotificationSlots, OfTheObserver) {
    EXPECT_EQ(SlotOf(&IZamConnStateObserver::OnChange), 2);
    EXPECT_EQ(SlotOf(&ISettingsSyncedObserver::OnChange), 2);
}

TEST(NotificationSlots, OfTheDataChangeSubscriber) {
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnPolicyChange), 2);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnProductSettingsChange), 3);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnSubscriptionsChange), 4);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnZamServerDataChange), 5);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnZamReserveCertChange), 6);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnZamUpdatesStatusChange), 7);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::SubscribeOnSettingsSynced), 8);
    EXPECT_EQ(SlotOf(&IZamDataChangeSubscriber::Unsubscribe), 9);
}

TEST(NotificationSlots, OfTheStateSubscriber) {
    EXPECT_EQ(SlotOf(&IZamConnStateSubscriber::SubscribeOnStateChange), 2);
    EXPECT_EQ(SlotOf(&IZamConnStateSubscriber::Unsubscribe), 3);
}

TEST(NotificationSlots, OfTheDataManager) {
    using Manager = proxy::IZamDataManager;
    EXPECT_EQ(SlotOf(&Manager::NotifyPolicy), 2);
    EXPECT_EQ(SlotOf(&Manager::NotifySettings), 3);
    EXPECT_EQ(SlotOf(&Manager::NotifySubscriptions), 4);
    EXPECT_EQ(SlotOf(&Manager::NotifyZamServerData), 5);
    EXPECT_EQ(SlotOf(&Manager::NotifyReserveCert), 6);
    EXPECT_EQ(SlotOf(&Manager::NotifyZamUpdatesStatus), 7);
    EXPECT_EQ(SlotOf(&Manager::NotifySettingsSynced), 8);
    EXPECT_EQ(SlotOf(&Manager::IsPolicySubscriberExist), 9);
    EXPECT_EQ(SlotOf(&Manager::IsSettingsSubscriberExist), 10);
    EXPECT_EQ(SlotOf(&Manager::IsSubscriptionsSubscriberExist), 11);
    EXPECT_EQ(SlotOf(&Manager::IsZamServerDataSubscriberExist), 12);
    EXPECT_EQ(SlotOf(&Manager::IsReserveCertSubscriberExist), 13);
    EXPECT_EQ(SlotOf(&Manager::IsZamUpdatesStatusExist), 14);
    EXPECT_EQ(SlotOf(&Manager::IsSettingsSyncedSubscriberExist), 15);
}

TEST(NotificationSlots, OfThePipelinesParts) {
    EXPECT_EQ(SlotOf(&proxy::IZamConnStateManager::SetZamConnectorState), 2);
    using Provider = proxy::IDataProvider<int>;
    EXPECT_EQ(SlotOf(&Provider::Register), 2);
    EXPECT_EQ(SlotOf(&Provider::GetData), 3);
    EXPECT_EQ(SlotOf(&Provider::Unregister), 4);
    using Subscriber = proxy::IDataSubscriber<int, qor::utils::BlockingQueue>;
    EXPECT_EQ(SlotOf(&Subscriber::Subscribe), 2);
    EXPECT_EQ(SlotOf(&Subscriber::Unsubscribe), 3);
    using Handler = proxy::IDataHandler<proxy::IZamDataManager>;
    EXPECT_EQ(SlotOf(&Handler::Start), 2);
    EXPECT_EQ(SlotOf(&Handler::Stop), 3);
    EXPECT_EQ(SlotOf(&proxy::IDataProcessor<int>::ProcessData), 2);
    using Factory = proxy::IDataProcessorFactory<int, proxy::IZamConnStateManager>;
    EXPECT_EQ(SlotOf(&Factory::CreateDataProcessor), 2);
}

// The exact types, `noexcept` included.
template <typename Observer>
using SubscribeOn = int (IZamDataChangeSubscriber::*)(std::weak_ptr<Observer>,
                                                      SubscriptionCookie&) noexcept;
static_assert(std::is_same_v<decltype(&IZamDataChangeSubscriber::SubscribeOnPolicyChange),
                             SubscribeOn<IPolicyObserver>>);
static_assert(std::is_same_v<decltype(&IZamDataChangeSubscriber::SubscribeOnSettingsSynced),
                             SubscribeOn<ISettingsSyncedObserver>>);
static_assert(
    std::is_same_v<decltype(&IZamDataChangeSubscriber::Unsubscribe),
                   int (IZamDataChangeSubscriber::*)(const SubscriptionCookie&) noexcept>);
static_assert(std::is_same_v<decltype(&IZamConnStateSubscriber::Unsubscribe),
                             int (IZamConnStateSubscriber::*)(const SubscriptionCookie&) noexcept>);

// A cookie is ordered by its number.
static_assert(SubscriptionCookie() == SubscriptionCookie(0));
static_assert(SubscriptionCookie(1) < SubscriptionCookie(2));
static_assert(!(SubscriptionCookie(2) < SubscriptionCookie(2)));
static_assert(SubscriptionCookie(1) != SubscriptionCookie(2));
static_assert(sizeof(SubscriptionCookie) == 8);

}  // namespace
}  // namespace zam_connector
