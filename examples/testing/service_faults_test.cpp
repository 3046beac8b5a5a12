#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>

#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/in_process_service.h"

using zam_connector::testing::InProcessService;

/// Code of the application: starts the link, and tries once more when the service is not ready.
int StartWithOneRetry(zam_connector::IZamConnController& controller) {
    constexpr int kNotReady = static_cast<int>(0x80000063U);
    zam_connector::ZamConnectionParameters parameters;
    parameters.serverAddress = "server.example";
    parameters.serverPort = 13000;
    const int code = controller.Start(parameters);
    return code == kNotReady ? controller.Start(parameters) : code;
}

TEST(Application, TriesOnceMoreWhenTheServiceIsNotReady) {
    InProcessService service;
    ::setenv("ZAM_RUNTIME_DIR", service.RuntimeDirectory().c_str(), 1);
    service.WriteData("faults.json", R"({"rules": [
        {"endpoint": "connController", "operation": "Start", "calls": 1,
         "result_code": "0x80000063"}]})");
    service.Start();

    std::shared_ptr<zam_connector::IZamConnector> connector;
    ASSERT_EQ(zam_connector::CreateZamConnector(connector, {}), 0);
    std::shared_ptr<zam_connector::IZamConnController> controller;
    ASSERT_EQ(connector->GetZamController(controller), 0);
    EXPECT_EQ(StartWithOneRetry(*controller), 0);
}
