#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "zam_conn_command_sender_proxy.h"
#include "zam_conn_controller_proxy.h"
#include "zam_conn_settings_holder_proxy.h"
#include "zam_connector/zam_connector.h"

// What a client's compiled code relies on: places in virtual tables, promises not to throw, and
// the shape of records.

namespace zam_connector {
namespace {

/// The slot of a virtual member in its class's table. In the C++ ABI of our platforms a pointer to
/// a virtual member holds the slot's offset in bytes, marked in its lowest bit: with 1 added to it
/// on x86-64, in the adjustment word behind it on AArch64.
template <typename Member>
std::intptr_t SlotOf(Member member) {
    static_assert(sizeof(member) == 2 * sizeof(std::intptr_t));
    std::intptr_t words[2];
    std::memcpy(words, &member, sizeof(words));
#if defined(__aarch64__)
    EXPECT_EQ(words[1] & 1, 1) << "not virtual";
    return words[0] / static_cast<std::intptr_t>(sizeof(void*));
#else
    EXPECT_EQ(words[0] % static_cast<std::intptr_t>(sizeof(void*)), 1) << "not virtual";
    return (words[0] - 1) / static_cast<std::intptr_t>(sizeof(void*));
#endif
}

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

static_assert(std::is_abstract_v<IZamConnController>);
static_assert(std::is_abstract_v<IZamConnSettingsHolder>);
static_assert(std::is_abstract_v<IZamConnCommandSender>);
static_assert(std::has_virtual_destructor_v<IZamConnController>);
static_assert(std::has_virtual_destructor_v<IZamConnSettingsHolder>);
static_assert(std::has_virtual_destructor_v<IZamConnCommandSender>);

TEST(Interfaces, AreATableAndNothingElse) {
    EXPECT_EQ(sizeof(IZamConnController), sizeof(void*));
    EXPECT_EQ(sizeof(IZamConnSettingsHolder), sizeof(void*));
    EXPECT_EQ(sizeof(IZamConnCommandSender), sizeof(void*));
}

TEST(Proxies, HoldTheirTableAndTheirRecordAndNothingElse) {
    EXPECT_EQ(sizeof(proxy::ZamConnControllerProxy), 4 * sizeof(void*));
    EXPECT_EQ(sizeof(proxy::ZamConnSettingsHolderProxy), 4 * sizeof(void*));
    EXPECT_EQ(sizeof(proxy::ZamConnCommandSenderProxy), 4 * sizeof(void*));
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
