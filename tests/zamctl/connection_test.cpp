#include "connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qx/conn_command_sender.h"
#include "qx/conn_controller.h"
#include "qx/conn_settings_holder.h"
#include "qx/endpoint_names.h"
#include "zam_connector_testing/scripted_platform.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;
using zam_connector::testing::AnswerWith;
using zam_connector::testing::InitFault;
using zam_connector::testing::PlatformCall;
using zam_connector::testing::ScriptedPlatform;
using zam_connector::testing::ScriptedTransport;

constexpr std::uint32_t kHandle = 7;
constexpr const char* kEndpoints[] = {qx::kConnControllerEndpoint, qx::kConnSettingsHolderEndpoint,
                                      qx::kConnCommandSenderEndpoint};

class ConnectionTest : public ::testing::Test {
protected:
    ConnectionTest() {
        platform_.SetHandle(qx::kConnectorService, kHandle);
        platform_.SetTransport(kHandle, &transport_);
        for (std::uint16_t riid = 0; riid < std::size(kEndpoints); ++riid) {
            platform_.SetRiid(kEndpoints[riid], static_cast<std::uint16_t>(riid + 1));
        }
    }

    /// What `Open` throws, as its own type when that is `MissingEndpoint`.
    template <typename Exception>
    std::string TextOfOpen() {
        try {
            connection_.Open();
        } catch (const Exception& exception) {
            return exception.what();
        }
        return "nothing thrown";
    }

    ScriptedTransport transport_;
    ScriptedPlatform platform_;
    Connection connection_;
};

TEST_F(ConnectionTest, MakesEachInterfaceOverItsEndpoint) {
    const ConnectorInterfaces connector = connection_.Open();
    qx_zam_connector_ConnController_GetState_rsp state{};
    state.state = 2;
    transport_.Enqueue(AnswerWith(state));
    transport_.SetDefault({});
    zam_connector::ZamConnectorState got{};
    EXPECT_EQ(connector.controller.GetState(got), 0);
    EXPECT_EQ(got, zam_connector::ZamConnectorState::Connected);
    EXPECT_EQ(connector.settingsHolder.Set({}), 0);
    EXPECT_EQ(connector.commandSender.ScheduleSync(), 0);
    const auto calls = transport_.Calls();
    ASSERT_EQ(calls.size(), 3U);
    for (std::uint16_t number = 0; number < calls.size(); ++number) {
        EXPECT_EQ(calls[number].requestHeader.riid, number + 1);
    }
}

TEST_F(ConnectionTest, InitialisesOneTransportWithoutADeadline) {
    connection_.Open();
    connection_.Open();
    int inits = 0;
    for (const PlatformCall& call : platform_.Calls()) {
        if (call.function == PlatformCall::Function::VdZorTransportInit) {
            ++inits;
            EXPECT_EQ(call.handle, kHandle);
            EXPECT_EQ(call.timeoutMs, 0U);
            EXPECT_EQ(call.flags, 0U);
        }
    }
    EXPECT_EQ(inits, 1);
}

TEST_F(ConnectionTest, ThrowsWithoutAService) {
    platform_.SetHandle(qx::kConnectorService, VD_ZOR_INVALID_HANDLE);
    EXPECT_THAT(TextOfOpen<std::runtime_error>(),
                HasSubstr("Handle for zam_connector_id wasn't received!"));
    EXPECT_THROW(connection_.Endpoints(), std::runtime_error);
}

TEST_F(ConnectionTest, NamesTheEndpointThatIsMissing) {
    for (std::uint16_t number = 0; number < std::size(kEndpoints); ++number) {
        platform_.SetRiid(kEndpoints[number], VD_UNKNOWN_RIID);
        EXPECT_EQ(TextOfOpen<MissingEndpoint>(),
                  std::string("ServiceLocator does not contain connection riid for ") +
                      kEndpoints[number]);
        platform_.SetRiid(kEndpoints[number], static_cast<std::uint16_t>(number + 1));
    }
    connection_.Open();
}

TEST_F(ConnectionTest, ThrowsWhenTheTransportIsNoGood) {
    platform_.SetInitFault(kHandle, InitFault::NoHandle);
    EXPECT_THAT(TextOfOpen<std::runtime_error>(), HasSubstr("could not be initialised"));
}

TEST_F(ConnectionTest, ReportsEveryEndpoint) {
    platform_.SetRiid(kEndpoints[1], VD_UNKNOWN_RIID);
    const std::vector<EndpointReport> reports = connection_.Endpoints();
    ASSERT_EQ(reports.size(), 3U);
    for (std::size_t number = 0; number < reports.size(); ++number) {
        EXPECT_EQ(reports[number].name, kEndpoints[number]);
    }
    EXPECT_EQ(reports[0].riid, std::uint16_t{1});
    EXPECT_EQ(reports[1].riid, std::nullopt);
    EXPECT_EQ(reports[2].riid, std::uint16_t{3});
}

TEST_F(ConnectionTest, NamesTheService) {
    EXPECT_EQ(connection_.ServiceName(), "zam_connector_id");
}

}  // namespace
}  // namespace zamctl::test
