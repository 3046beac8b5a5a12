#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

#include "qx/conn_command_sender.h"
#include "qx/conn_controller.h"
#include "qx/conn_settings_holder.h"
#include "support/result_codes.h"
#include "zam_conn_command_sender_proxy.h"
#include "zam_conn_controller_proxy.h"
#include "zam_conn_settings_holder_proxy.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_connector_testing/scripted_transport.h"

/// The three proxies of connection control over a scripted transport.
namespace zam_connector::test {

inline constexpr std::uint16_t kControllerRiid = 0x0A01;
inline constexpr std::uint16_t kSettingsHolderRiid = 0x0B02;
inline constexpr std::uint16_t kCommandSenderRiid = 0x0C03;

/// Transport statuses that a proxy must all take for the same failure.
inline constexpr int kTransportStatuses[] = {1, -1, 2, INT_MAX, INT_MIN, kUnspecified};

/// Result codes that a proxy must all hand on as they stand.
inline constexpr int kResultCodes[] = {
    0,       1,           2,    INT_MAX, -1, INT_MIN, kUnspecified, static_cast<int>(0x80000045U),
    -0x4321, 0x0001'0203, 0x4B,
};

inline qx_zam_connector_ConnController_proxy ControllerRecord(VdZorTransport* transport) {
    qx_zam_connector_ConnController_proxy record{};
    qx_zam_connector_ConnController_proxy_init(&record, transport, kControllerRiid);
    return record;
}

inline qx_zam_connector_ConnSettingsHolder_proxy SettingsHolderRecord(VdZorTransport* transport) {
    qx_zam_connector_ConnSettingsHolder_proxy record{};
    qx_zam_connector_ConnSettingsHolder_proxy_init(&record, transport, kSettingsHolderRiid);
    return record;
}

inline qx_zam_connector_ConnCommandSender_proxy CommandSenderRecord(VdZorTransport* transport) {
    qx_zam_connector_ConnCommandSender_proxy record{};
    qx_zam_connector_ConnCommandSender_proxy_init(&record, transport, kCommandSenderRiid);
    return record;
}

class ProxyTest : public ::testing::Test {
protected:
    /// A script that does not fit the calls is a fault of the test.
    void TearDown() override { EXPECT_THAT(transport_.Faults(), ::testing::IsEmpty()); }

    /// The only call so far.
    testing::RecordedCall OnlyCall() const {
        const auto calls = transport_.Calls();
        EXPECT_EQ(calls.size(), 1U);
        return calls.empty() ? testing::RecordedCall() : calls.front();
    }

    /// There is one record since the last look, of level 4 and with a line.
    void ExpectFailureRecord(const char* file, const char* function,
                             const ::testing::Matcher<std::string>& text) {
        const auto records = logger_.Records();
        logger_.Clear();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, 4);
        EXPECT_EQ(records[0].file, file);
        EXPECT_GT(records[0].line, 0);
        EXPECT_EQ(records[0].function, function);
        EXPECT_THAT(records[0].text, text);
    }

    void ExpectNoRecord() { EXPECT_THAT(logger_.Records(), ::testing::IsEmpty()); }

    testing::RecordingLogger logger_;
    testing::ScriptedTransport transport_;
    proxy::ZamConnControllerProxy controller_{ControllerRecord(transport_.Get())};
    proxy::ZamConnSettingsHolderProxy settingsHolder_{SettingsHolderRecord(transport_.Get())};
    proxy::ZamConnCommandSenderProxy commandSender_{CommandSenderRecord(transport_.Get())};
};

}  // namespace zam_connector::test
