#include "zam_connector_testing/service_process.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>

#include "zam_connector/zam_connector.h"

using zam_connector::testing::ServiceProcess;

TEST(Application, FindsItsEventAfterACrashOfTheService) {
    ServiceProcess service(ZAM_CONNECTORD);  // the path of zam_connectord
    ::setenv("ZAM_RUNTIME_DIR", service.RuntimeDirectory().c_str(), 1);
    service.Start();

    std::shared_ptr<zam_connector::IZamConnector> connector;
    ASSERT_EQ(zam_connector::CreateZamConnector(connector, {}), 0);
    std::shared_ptr<zam_connector::IZamConnCommandSender> sender;
    ASSERT_EQ(connector->GetCommandSender(sender), 0);
    EXPECT_EQ(sender->PostZamEvent("door opened"), 0);

    service.Kill();
    EXPECT_NE(sender->PostZamEvent("nobody hears it"), 0);
    service.Start();
    EXPECT_EQ(sender->PostZamEvent("door closed"), 0);

    const std::string history = service.ReadData("uploads/history.jsonl");
    EXPECT_NE(history.find("door opened"), std::string::npos);
    EXPECT_EQ(history.find("nobody hears it"), std::string::npos);
    EXPECT_NE(history.find("door closed"), std::string::npos);
}
