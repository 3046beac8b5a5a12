#include "zam_connector_testing/recording_observer.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>

#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/in_process_service.h"

using zam_connector::ZamConnectorState;
using zam_connector::testing::InProcessService;
using zam_connector::testing::RecordingObserver;

TEST(Application, IsToldThatTheServerRefusesIt) {
    InProcessService service;
    ::setenv("ZAM_RUNTIME_DIR", service.RuntimeDirectory().c_str(), 1);
    service.WriteData("connection.json", R"({"refuse": {"after_ms": 1}})");
    service.Start();

    std::shared_ptr<zam_connector::IZamConnector> connector;
    ASSERT_EQ(zam_connector::CreateZamConnector(connector, {}), 0);
    std::shared_ptr<zam_connector::IZamConnStateSubscriber> subscriber;
    ASSERT_EQ(connector->GetStateChangeSubscriber(subscriber), 0);
    std::shared_ptr<zam_connector::IZamConnController> controller;
    ASSERT_EQ(connector->GetZamController(controller), 0);

    const auto observer = std::make_shared<RecordingObserver<ZamConnectorState>>();
    zam_connector::SubscriptionCookie cookie;
    ASSERT_EQ(subscriber->SubscribeOnStateChange(observer, cookie), 0);

    zam_connector::ZamConnectionParameters parameters;
    parameters.serverAddress = "server.example";
    parameters.serverPort = 13000;
    ASSERT_EQ(controller->Start(parameters), 0);

    ASSERT_TRUE(observer->WaitForCount(2));
    EXPECT_EQ(observer->Values()[0], ZamConnectorState::Connecting);
    EXPECT_EQ(observer->Values()[1], ZamConnectorState::Refused);
    EXPECT_EQ(subscriber->Unsubscribe(cookie), 0);
}
