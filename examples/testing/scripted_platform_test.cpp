#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/scripted_platform.h"
#include "zam_connector_testing/scripted_transport.h"

using zam_connector::testing::RecordedCall;
using zam_connector::testing::ScriptedAnswer;
using zam_connector::testing::ScriptedPlatform;
using zam_connector::testing::ScriptedTransport;

TEST(Application, SeesAStateThatNoServiceEverTold) {
    ScriptedTransport service;
    ScriptedPlatform platform;
    platform.SetHandle("zam_connector_id", 1);
    platform.SetHandle("zam_file_downloader_id", 2);
    platform.SetTransport(1, &service);
    platform.SetTransport(2, &service);
    std::uint16_t riid = 1;
    for (const char* const endpoint :
         {"connController", "connSettingsHolder", "connStateNotifier", "connCommandSender",
          "zamDataProvider", "zamDataNotifier", "productDataHolder", "clientCertsDownloader"}) {
        platform.SetRiid(std::string("qx.zam_connector.ZamConnectorComponent.") + endpoint, riid++);
    }
    platform.SetRiid("qx.zam_connector.ZamFileDownloaderComponent.fileDownloader", riid);

    std::shared_ptr<zam_connector::IZamConnector> connector;
    ASSERT_EQ(zam_connector::CreateZamConnector(connector, {}), 0);
    std::shared_ptr<zam_connector::IZamConnController> controller;
    ASSERT_EQ(connector->GetZamController(controller), 0);

    // A state (5: refused) and a result code (0), as docs/wire.md has them.
    service.Enqueue(ScriptedAnswer{0, {5, 0, 0, 0, 0, 0, 0, 0}, {}});
    zam_connector::ZamConnectorState state{};
    EXPECT_EQ(controller->GetState(state), 0);
    EXPECT_EQ(state, zam_connector::ZamConnectorState::Refused);

    service.Enqueue(zam_connector::testing::FailWith(3));
    EXPECT_EQ(controller->GetState(state), static_cast<int>(0x8000004BU)) << "the transport failed";

    ASSERT_EQ(service.Calls().size(), 2U);
    const RecordedCall call = service.Calls().front();
    EXPECT_EQ(call.requestHeader.riid, 1);
    EXPECT_EQ(call.requestHeader.operation, 2) << "GetState";
}
