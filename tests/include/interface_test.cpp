#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "product_data_holder_proxy.h"
#include "virtual_slot.h"
#include "zam_conn_command_sender_proxy.h"
#include "zam_conn_controller_proxy.h"
#include "zam_conn_settings_holder_proxy.h"
#include "zam_connector/i_product_data_holder.h"
#include "zam_connector/i_zam_data_provider.h"
#include "zam_connector/zam_connector.h"
#include "zam_data_provider_proxy.h"

// What a client's compiled code relies on: places in virtual tables, promises not to throw, and
// the shape of records.

namespace zam_connector {
namespace {

// Slots 0 and 1 are those of the destructor, which the interfaces declare first.

TEST(VirtualSlots, OfTheControllerStandInOrder) {
    EXPECT_EQ(SlotOf(&IZamConnController::Start), 2);
    EXPECT_EQ(SlotOf(&IZamConnController::Stop), 3);
    EXPECT_EQ(SlotOf(&IZamConnController::GetState), 4);
    EXPECT_EQ(SlotOf(&proxy::ZamConnControllerProxy::Start), 2);
    EXPECT_EQ(SlotOf(&proxy::ZamConnControllerProxy::Stop), 3);
    EXPECT_EQ(SlotOf(&proxy::ZamConnControllerProxy::GetState), 4);
}

TEST(VirtualSlots, OfTheSettingsHolderStandInOrder) {
    EXPECT_EQ(SlotOf(&IZamConnSettingsHolder::Set), 2);
    EXPECT_EQ(SlotOf(&IZamConnSettingsHolder::Get), 3);
    EXPECT_EQ(SlotOf(&proxy::ZamConnSettingsHolderProxy::Set), 2);
    EXPECT_EQ(SlotOf(&proxy::ZamConnSettingsHolderProxy::Get), 3);
}

TEST(VirtualSlots, OfTheCommandSenderStandInOrder) {
    EXPECT_EQ(SlotOf(&IZamConnCommandSender::PostZamEvent), 2);
    EXPECT_EQ(SlotOf(&IZamConnCommandSender::ScheduleSync), 3);
    EXPECT_EQ(SlotOf(&proxy::ZamConnCommandSenderProxy::PostZamEvent), 2);
    EXPECT_EQ(SlotOf(&proxy::ZamConnCommandSenderProxy::ScheduleSync), 3);
}

/// The operation of the proxy, which has another one of this name.
constexpr auto kProxyGetZamUpdatesStatus = static_cast<int (proxy::ZamDataProviderProxy::*)(
    std::pair<unsigned long, ZamUpdatesStatus>&) noexcept>(
    &proxy::ZamDataProviderProxy::GetZamUpdatesStatus);

TEST(VirtualSlots, OfTheDataProviderStandInOrder) {
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetPolicy), 2);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetProductSettings), 3);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetSubscriptions), 4);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetZamServerData), 5);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetZamReserveCert), 6);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetZamUpdatesStatus), 7);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetZamUpdatesStatusHash), 8);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetPolicyHash), 9);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetSettingsHash), 10);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetSubscriptionHash), 11);
    EXPECT_EQ(SlotOf(&IZamDataProvider::GetSyncedSettingsHash), 12);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetPolicy), 2);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetProductSettings), 3);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetSubscriptions), 4);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetZamServerData), 5);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetZamReserveCert), 6);
    EXPECT_EQ(SlotOf(kProxyGetZamUpdatesStatus), 7);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetZamUpdatesStatusHash), 8);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetPolicyHash), 9);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetSettingsHash), 10);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetSubscriptionHash), 11);
    EXPECT_EQ(SlotOf(&proxy::ZamDataProviderProxy::GetSyncedSettingsHash), 12);
}

TEST(VirtualSlots, OfTheProductDataHolderStandInOrder) {
    EXPECT_EQ(SlotOf(&IProductDataHolder::SetAppInfo), 2);
    EXPECT_EQ(SlotOf(&IProductDataHolder::SetAppInfoDynamic), 3);
    EXPECT_EQ(SlotOf(&IProductDataHolder::SetAppEulas), 4);
    EXPECT_EQ(SlotOf(&IProductDataHolder::SetAppUpdates), 5);
    EXPECT_EQ(SlotOf(&IProductDataHolder::SetSettings), 6);
    EXPECT_EQ(SlotOf(&proxy::ProductDataHolderProxy::SetAppInfo), 2);
    EXPECT_EQ(SlotOf(&proxy::ProductDataHolderProxy::SetAppInfoDynamic), 3);
    EXPECT_EQ(SlotOf(&proxy::ProductDataHolderProxy::SetAppEulas), 4);
    EXPECT_EQ(SlotOf(&proxy::ProductDataHolderProxy::SetAppUpdates), 5);
    EXPECT_EQ(SlotOf(&proxy::ProductDataHolderProxy::SetSettings), 6);
}

// The exact types, `noexcept` included.
static_assert(std::is_same_v<decltype(&IZamConnController::Start),
                             int (IZamConnController::*)(const ZamConnectionParameters&) noexcept>);
static_assert(
    std::is_same_v<decltype(&IZamConnController::Stop), int (IZamConnController::*)() noexcept>);
static_assert(std::is_same_v<decltype(&IZamConnController::GetState),
                             int (IZamConnController::*)(ZamConnectorState&) const noexcept>);
static_assert(std::is_same_v<decltype(&IZamConnSettingsHolder::Set),
                             int (IZamConnSettingsHolder::*)(ZamConnectorSettings) noexcept>);
static_assert(
    std::is_same_v<decltype(&IZamConnSettingsHolder::Get),
                   int (IZamConnSettingsHolder::*)(ZamConnectorSettings&) const noexcept>);
static_assert(std::is_same_v<decltype(&IZamConnCommandSender::PostZamEvent),
                             int (IZamConnCommandSender::*)(std::string) noexcept>);
static_assert(std::is_same_v<decltype(&IZamConnCommandSender::ScheduleSync),
                             int (IZamConnCommandSender::*)() noexcept>);

template <typename Record>
using GetRecord = int (IZamDataProvider::*)(std::pair<unsigned long, Record>&) noexcept;
using GetHash = int (IZamDataProvider::*)(unsigned long&) noexcept;
template <typename Record>
using SetRecord = int (IProductDataHolder::*)(const Record&, unsigned long&) noexcept;

static_assert(std::is_same_v<decltype(&IZamDataProvider::GetPolicy), GetRecord<ZamPolicy>>);
static_assert(
    std::is_same_v<decltype(&IZamDataProvider::GetProductSettings), GetRecord<ZamProductSettings>>);
static_assert(
    std::is_same_v<decltype(&IZamDataProvider::GetSubscriptions), GetRecord<ZamSubscriptions>>);
static_assert(std::is_same_v<decltype(&IZamDataProvider::GetZamServerData),
                             int (IZamDataProvider::*)(ZamServerData&) noexcept>);
static_assert(std::is_same_v<decltype(&IZamDataProvider::GetZamReserveCert),
                             int (IZamDataProvider::*)(std::string&) noexcept>);
static_assert(
    std::is_same_v<decltype(&IZamDataProvider::GetZamUpdatesStatus), GetRecord<ZamUpdatesStatus>>);
static_assert(std::is_same_v<decltype(&IZamDataProvider::GetZamUpdatesStatusHash), GetHash>);
static_assert(std::is_same_v<decltype(&IZamDataProvider::GetPolicyHash), GetHash>);
static_assert(std::is_same_v<decltype(&IZamDataProvider::GetSettingsHash), GetHash>);
static_assert(std::is_same_v<decltype(&IZamDataProvider::GetSubscriptionHash), GetHash>);
static_assert(std::is_same_v<decltype(&IZamDataProvider::GetSyncedSettingsHash), GetHash>);
static_assert(std::is_same_v<decltype(&IProductDataHolder::SetAppInfo),
                             int (IProductDataHolder::*)(const AppInfo&) noexcept>);
static_assert(std::is_same_v<decltype(&IProductDataHolder::SetAppInfoDynamic),
                             int (IProductDataHolder::*)(const DynamicAppInfo&) noexcept>);
static_assert(
    std::is_same_v<decltype(&IProductDataHolder::SetAppEulas), SetRecord<std::vector<AppEula>>>);
static_assert(std::is_same_v<decltype(&IProductDataHolder::SetAppUpdates), SetRecord<AppUpdates>>);
static_assert(
    std::is_same_v<decltype(&IProductDataHolder::SetSettings), SetRecord<ZamProductSettings>>);

static_assert(std::is_abstract_v<IZamConnController>);
static_assert(std::is_abstract_v<IZamConnSettingsHolder>);
static_assert(std::is_abstract_v<IZamConnCommandSender>);
static_assert(std::is_abstract_v<IZamDataProvider>);
static_assert(std::is_abstract_v<IProductDataHolder>);
static_assert(std::has_virtual_destructor_v<IZamConnController>);
static_assert(std::has_virtual_destructor_v<IZamConnSettingsHolder>);
static_assert(std::has_virtual_destructor_v<IZamConnCommandSender>);
static_assert(std::has_virtual_destructor_v<IZamDataProvider>);
static_assert(std::has_virtual_destructor_v<IProductDataHolder>);

TEST(Interfaces, AreATableAndNothingElse) {
    EXPECT_EQ(sizeof(IZamConnController), sizeof(void*));
    EXPECT_EQ(sizeof(IZamConnSettingsHolder), sizeof(void*));
    EXPECT_EQ(sizeof(IZamConnCommandSender), sizeof(void*));
    EXPECT_EQ(sizeof(IZamDataProvider), sizeof(void*));
    EXPECT_EQ(sizeof(IProductDataHolder), sizeof(void*));
}

TEST(Proxies, HoldTheirTableAndTheirRecordAndNothingElse) {
    EXPECT_EQ(sizeof(proxy::ZamConnControllerProxy), 4 * sizeof(void*));
    EXPECT_EQ(sizeof(proxy::ZamConnSettingsHolderProxy), 4 * sizeof(void*));
    EXPECT_EQ(sizeof(proxy::ZamConnCommandSenderProxy), 4 * sizeof(void*));
    EXPECT_EQ(sizeof(proxy::ZamDataProviderProxy), 4 * sizeof(void*));
    EXPECT_EQ(sizeof(proxy::ProductDataHolderProxy), 4 * sizeof(void*));
}

static_assert(std::is_trivially_copyable_v<ZamConnectorSettings>);
static_assert(std::is_standard_layout_v<ZamConnectorSettings>);
static_assert(std::is_same_v<std::underlying_type_t<ZamConnectorState>, std::int32_t>);

TEST(ConnectorSettings, HaveTheDefaultsOfANewService) {
    const ZamConnectorSettings settings;
    EXPECT_EQ(settings.syncPeriod.count(), 900U);
    EXPECT_EQ(settings.heartbeatPeriod.count(), 60U);
    EXPECT_EQ(settings.reconnectDelayMin.count(), 5U);
    EXPECT_EQ(settings.reconnectDelayMax.count(), 300U);
    EXPECT_EQ(settings.uploadLimitBytesPerSecond, 0U);
    EXPECT_EQ(settings.downloadLimitBytesPerSecond, 0U);
    EXPECT_EQ(settings.maxFileSizeBytes, 0U);
    EXPECT_EQ(settings.eventQueueLimit, 1000U);
    EXPECT_TRUE(settings.compressTraffic);
    EXPECT_FALSE(settings.allowMeteredNetwork);
    EXPECT_FALSE(settings.sendDiagnostics);
}

TEST(ConnectorState, HasItsNumbers) {
    EXPECT_EQ(static_cast<int>(ZamConnectorState::Stopped), 0);
    EXPECT_EQ(static_cast<int>(ZamConnectorState::Connecting), 1);
    EXPECT_EQ(static_cast<int>(ZamConnectorState::Connected), 2);
    EXPECT_EQ(static_cast<int>(ZamConnectorState::WaitingForReconnect), 3);
    EXPECT_EQ(static_cast<int>(ZamConnectorState::Stopping), 4);
    EXPECT_EQ(static_cast<int>(ZamConnectorState::Refused), 5);
}

}  // namespace
}  // namespace zam_connector
