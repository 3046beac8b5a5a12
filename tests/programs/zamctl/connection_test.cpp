#include "connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "qx/conn_controller.h"
#include "qx/endpoint_names.h"
#include "record_keeper.h"
#include "zam_connector_testing/scripted_platform.h"

namespace zamctl::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using zam_connector::testing::AnswerWith;
using zam_connector::testing::InitFault;
using zam_connector::testing::PlatformCall;
using zam_connector::testing::ScriptedPlatform;
using zam_connector::testing::ScriptedTransport;

constexpr std::uint32_t kHandle = 7;
constexpr std::uint32_t kFilesHandle = 8;
constexpr const char* kEndpoints[] = {
    qx::kConnControllerEndpoint,    qx::kConnSettingsHolderEndpoint,
    qx::kConnStateNotifierEndpoint, qx::kConnCommandSenderEndpoint,
    qx::kZamDataProviderEndpoint,   qx::kZamDataNotifierEndpoint,
    qx::kProductDataHolderEndpoint, qx::kClientCertsDownloaderEndpoint};
constexpr std::uint16_t kFilesRiid = 99;

class ConnectionTest : public ::testing::Test {
protected:
    ConnectionTest() {
        platform_.SetHandle(qx::kConnectorService, kHandle);
        platform_.SetTransport(kHandle, &transport_);
        platform_.SetHandle(qx::kFileDownloaderService, kFilesHandle);
        platform_.SetTransport(kFilesHandle, &filesTransport_);
        for (std::uint16_t riid = 0; riid < std::size(kEndpoints); ++riid) {
            platform_.SetRiid(kEndpoints[riid], static_cast<std::uint16_t>(riid + 1));
        }
        platform_.SetRiid(qx::kFileDownloaderEndpoint, kFilesRiid);
    }

    /// What `Open` throws as that type, behind the service's name when it is about one.
    template <typename Exception>
    std::string TextOfOpen() {
        try {
            connection_.Open();
        } catch (const Exception& exception) {
            const auto* const trouble =
                dynamic_cast<const ServiceTrouble*>(static_cast<const std::exception*>(&exception));
            return (trouble == nullptr ? "" : trouble->Service() + ": ") + exception.what();
        }
        return "nothing thrown";
    }

    std::ostringstream err_;
    RecordKeeper records_{err_, zor::logger::kLevelError};
    ScriptedTransport transport_;
    ScriptedTransport filesTransport_;
    ScriptedPlatform platform_;
    Connection connection_;
};

TEST_F(ConnectionTest, MakesTheConnectorOnceWithAllItsInterfaces) {
    const ConnectorInterfaces connector = connection_.Open();
    EXPECT_EQ(&connector.controller, &connection_.Open().controller);
    qx_zam_connector_ConnController_GetState_rsp state{};
    state.state = 2;
    transport_.Enqueue(AnswerWith(state));
    transport_.SetDefault({});
    filesTransport_.SetDefault({});
    zam_connector::ZamConnectorState got{};
    EXPECT_EQ(connector.controller.GetState(got), 0);
    EXPECT_EQ(got, zam_connector::ZamConnectorState::Connected);
    EXPECT_EQ(connector.settingsHolder.Set({}), 0);
    EXPECT_EQ(connector.commandSender.ScheduleSync(), 0);
    unsigned long hash = 0;
    EXPECT_EQ(connector.dataProvider.GetPolicyHash(hash), 0);
    EXPECT_EQ(connector.productDataHolder.SetAppInfoDynamic({}), 0);
    std::vector<zam_connector::ClientCertInfo> certs;
    EXPECT_EQ(connector.certsDownloader.GetClientCertificates({}, certs), 0);
    zam_connector::FileInfo info;
    EXPECT_EQ(connector.fileDownloader.GetFileInfo({"name"}, info), 0);
    std::vector<int> riids;
    for (const auto& call : transport_.Calls()) {
        riids.push_back(call.requestHeader.riid);
    }
    EXPECT_THAT(riids, ElementsAre(1, 2, 4, 5, 7, 8));
    ASSERT_EQ(filesTransport_.Calls().size(), 1U);
    EXPECT_EQ(filesTransport_.Calls().front().requestHeader.riid, kFilesRiid);
    EXPECT_EQ(connector.localeInfo.DefaultLocale().value().name, "en-US");
    EXPECT_TRUE(connector.locationInfo.HasLocationInfo(1033));
}

TEST_F(ConnectionTest, NamesTheServiceThatIsAway) {
    for (const char* const service : {qx::kConnectorService, qx::kFileDownloaderService}) {
        platform_.SetHandle(service, VD_ZOR_INVALID_HANDLE);
        EXPECT_THAT(TextOfOpen<UnreachableService>(), HasSubstr(std::string(service) + ": "));
        EXPECT_THAT(records_.Cause(), HasSubstr(std::string("Create zam connector proxy: "
                                                            "Zam_ctr_proxy_factory: Handle for ") +
                                                service));
        EXPECT_THROW(connection_.Endpoints(service), UnreachableService);
        platform_.SetHandle(service, service == qx::kConnectorService ? kHandle : kFilesHandle);
        records_.Clear();
    }
}

TEST_F(ConnectionTest, ConnectsOnceToAskForTheFastChannel) {
    const auto connects = [this] {
        const auto calls = platform_.Calls();
        return std::count_if(calls.begin(), calls.end(), [](const PlatformCall& call) {
            return call.function == PlatformCall::Function::ServiceLocatorConnect &&
                   call.name == qx::kConnectorService;
        });
    };
    platform_.SetHandle(qx::kConnectorService, VD_ZOR_INVALID_HANDLE);
    EXPECT_THROW(connection_.FastChannel(), UnreachableService);
    platform_.SetHandle(qx::kConnectorService, kHandle);
    for (int look = 0; look < 2; ++look) {
        const FastChannelUse use = connection_.FastChannel();
        EXPECT_FALSE(use.isBuilt);
        EXPECT_FALSE(use.isOffered);
        EXPECT_EQ(use.calls, 0U);
    }
    EXPECT_EQ(connects(), 2);
}

TEST_F(ConnectionTest, NamesTheEndpointThatIsMissing) {
    for (std::uint16_t number = 0; number < std::size(kEndpoints); ++number) {
        platform_.SetRiid(kEndpoints[number], VD_UNKNOWN_RIID);
        EXPECT_EQ(TextOfOpen<MissingEndpoint>(),
                  std::string("zam_connector_id: ") + kEndpoints[number]);
        EXPECT_THAT(records_.Cause(), HasSubstr(kEndpoints[number]));
        platform_.SetRiid(kEndpoints[number], static_cast<std::uint16_t>(number + 1));
        records_.Clear();
    }
    platform_.SetRiid(qx::kFileDownloaderEndpoint, VD_UNKNOWN_RIID);
    EXPECT_EQ(TextOfOpen<MissingEndpoint>(),
              std::string("zam_file_downloader_id: ") + qx::kFileDownloaderEndpoint);
}

TEST_F(ConnectionTest, SaysWhenTheCodeIsZeroAndNothingWasReturned) {
    platform_.SetInitFault(kHandle, InitFault::NoHandle);
    EXPECT_THAT(TextOfOpen<NothingReturned>(), HasSubstr("but gave no connector"));
    EXPECT_THAT(records_.Cause(), HasSubstr("Create zam connector proxy: "));
}

TEST_F(ConnectionTest, ReportsEveryEndpointOfAService) {
    platform_.SetRiid(kEndpoints[1], VD_UNKNOWN_RIID);
    const std::vector<EndpointReport> reports = connection_.Endpoints(qx::kConnectorService);
    ASSERT_EQ(reports.size(), std::size(kEndpoints));
    for (std::size_t number = 0; number < reports.size(); ++number) {
        EXPECT_EQ(reports[number].name, kEndpoints[number]);
    }
    EXPECT_EQ(reports[0].riid, std::uint16_t{1});
    EXPECT_EQ(reports[1].riid, std::nullopt);
    EXPECT_EQ(reports[7].riid, std::uint16_t{8});
    const std::vector<EndpointReport> files = connection_.Endpoints(qx::kFileDownloaderService);
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].name, qx::kFileDownloaderEndpoint);
    EXPECT_EQ(files[0].riid, kFilesRiid);
}

TEST_F(ConnectionTest, NamesTheServices) {
    EXPECT_THAT(connection_.ServiceNames(),
                ElementsAre(qx::kConnectorService, qx::kFileDownloaderService));
}

}  // namespace
}  // namespace zamctl::test
