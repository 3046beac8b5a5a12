#include "zam_connector_testing/in_process_service.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/recording_observer.h"

using zam_connector::ZamPolicy;
using zam_connector::testing::InProcessService;
using zam_connector::testing::RecordingObserver;

TEST(Application, IsToldOfANewPolicy) {
    InProcessService service;
    ::setenv("ZAM_RUNTIME_DIR", service.RuntimeDirectory().c_str(), 1);
    service.WriteData("policy.json", R"({"update": {"allowed": false}})");
    service.Start();

    std::shared_ptr<zam_connector::IZamConnector> connector;
    ASSERT_EQ(zam_connector::CreateZamConnector(connector, {}), 0);
    std::shared_ptr<zam_connector::IZamDataChangeSubscriber> subscriber;
    ASSERT_EQ(connector->GetDataChangeSubscriber(subscriber), 0);

    using Told = std::pair<std::uint64_t, ZamPolicy>;
    const auto observer = std::make_shared<RecordingObserver<Told>>();
    zam_connector::SubscriptionCookie cookie;
    ASSERT_EQ(subscriber->SubscribeOnPolicyChange(observer, cookie), 0);

    service.WriteData("policy.json", R"({"update": {"allowed": true}})");
    ASSERT_TRUE(observer->WaitForCount(1));
    const Told told = observer->Values().back();
    EXPECT_EQ(told.second.tree, zuv::TValue(zuv::Map{{"update", zuv::Map{{"allowed", true}}}}));
    EXPECT_EQ(subscriber->Unsubscribe(cookie), 0);
}
