#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "data_fixture.h"
#include "history.h"
#include "support/result_codes.h"

namespace zam_connector::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ServiceData : public ServiceDataTest {
protected:
    unsigned long PolicyHash() {
        unsigned long hash = 0;
        EXPECT_EQ(Provider().GetPolicyHash(hash), 0);
        return hash;
    }
};

TEST_F(ServiceData, APolicyEditedInTheFolderIsReadThroughTheLibrary) {
    service_.WriteData("policy.json", R"({"port": {"$uint16": 443}})");
    StartService();
    std::pair<unsigned long, ZamPolicy> policy;
    ASSERT_EQ(Provider().GetPolicy(policy), 0);
    EXPECT_TRUE(
        policy.second.tree.IsIdenticalTo(zuv::Map{{"port", static_cast<unsigned short>(443)}}));
    EXPECT_EQ(PolicyHash(), policy.first);

    service_.WriteData("policy.json", "// the same\n{\"port\": {\"$uint16\": 443}}\n");
    service_.WriteData("product_settings.json", R"({"seen": true})");
    unsigned long settings = 0;
    EXPECT_TRUE(
        Eventually([&] { return Provider().GetSettingsHash(settings) == 0 && settings != 0; }));
    EXPECT_EQ(PolicyHash(), policy.first);

    service_.WriteData("policy.json", R"({"port": {"$uint16": 8443}, "odd key!": [null, -0.0]})");
    EXPECT_TRUE(Eventually([&] { return PolicyHash() != policy.first; }));
    ASSERT_EQ(Provider().GetPolicy(policy), 0);
    EXPECT_TRUE(
        policy.second.tree.IsIdenticalTo(tree_json::Read(service_.ReadData("policy.json"))));

    service_.Kill();
    StartService();
    EXPECT_EQ(PolicyHash(), policy.first) << "hashes outlive the service";
}

TEST_F(ServiceData, AWrongPolicyIsReportedWithItsPlaceAndTheLastGoodOneStays) {
    service_.WriteData("policy.json", R"({"a": 1})");
    StartService();
    const unsigned long hash = PolicyHash();
    service_.WriteData("policy.json", "{\n  \"a\": {\"$int8\": 128}}");
    EXPECT_TRUE(Eventually([this] {
        return service_.Log().find("policy.json:2:18: at \"/a/$int8\": is 128") !=
               std::string::npos;
    }));
    EXPECT_EQ(PolicyHash(), hash);
}

TEST_F(ServiceData, UploadsStandAsJsonUnderTheHashThatWasTold) {
    StartService();
    unsigned long hash = 0;
    const ZamProductSettings settings{TreeOf(5000)};
    ASSERT_EQ(Holder().SetSettings(settings, hash), 0);
    EXPECT_TRUE(Upload("settings").IsIdenticalTo(settings.tree));
    unsigned long synced = 0;
    EXPECT_EQ(Provider().GetSyncedSettingsHash(synced), 0);
    EXPECT_EQ(synced, hash);

    AppEula eula;
    eula.text = std::string(100'000, 'e');
    ASSERT_EQ(Holder().SetAppEulas({eula, eula}, hash), 0);
    EXPECT_THAT(service_.ReadData("uploads/eulas.json"), HasSubstr("\"updeula\""));
    AppUpdates updates;
    updates.updates.resize(20);
    ASSERT_EQ(Holder().SetAppUpdates(updates, hash), 0);
    const zuv::TValue stored = Upload("updates");
    EXPECT_NE(stored.Find("static_info"), nullptr);

    AppInfo info;
    info.productId = "product";
    ASSERT_EQ(Holder().SetAppInfo(info), 0);
    EXPECT_EQ(nlohmann::json::parse(service_.ReadData("uploads/app_info.json")).at("product_id"),
              "product");
    ASSERT_EQ(Holder().SetAppInfoDynamic({}), 0);
    EXPECT_EQ(HistoryOf(service_, "upload").size(), 5U);
    EXPECT_THAT(logger_.Records(), IsEmpty());
    EXPECT_THAT(service_.Log(), ::testing::Not(HasSubstr("refused")));
}

TEST_F(ServiceData, AnEmptyTreeIsStoredWithoutAPiece) {
    StartService();
    unsigned long hash = 0;
    EXPECT_EQ(Holder().SetSettings({}, hash), 0);
    EXPECT_NE(hash, 0U);
    EXPECT_EQ(service_.ReadData("uploads/settings.json"), "null\n");
}

TEST_F(ServiceData, AnOverweightRecordIsRefusedAndDoesNotGoOnForEver) {
    StartService();
    unsigned long hash = 7;
    ASSERT_EQ(Holder().SetSettings({zuv::Map{{"a", 1L}}}, hash), 0);
    const unsigned long before = hash;
    const ZamProductSettings settings{zuv::Map{{"a", std::string(676'000, 'x')}}};
    EXPECT_EQ(Holder().SetSettings(settings, hash), kInvalidArgument);
    EXPECT_EQ(hash, before);
    EXPECT_TRUE(Upload("settings").IsIdenticalTo(zuv::Map{{"a", 1L}}));
}

TEST_F(ServiceData, APieceLostOnTheWayLeavesTheUploadBefore) {
    StartService();
    unsigned long hash = 0;
    ASSERT_EQ(Holder().SetSettings({TreeOf(10)}, hash), 0);
    service_.Kill();
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "productDataHolder",
        "operation": "SendData", "calls": 3, "drop": true}]})");
    StartService();
    const unsigned long before = hash;
    EXPECT_LT(Holder().SetSettings({TreeOf(100)}, hash), 0);
    EXPECT_EQ(hash, before);
    EXPECT_TRUE(Upload("settings").IsIdenticalTo(TreeOf(10)));
    EXPECT_THAT(service_.Log(), HasSubstr("settings upload refused: a piece met with a fault"));
}

TEST_F(ServiceData, ABadStatusOnTheNthPieceEndsATransfer) {
    zuv::Map map;
    for (const char* const key : {"a", "b", "c"}) {
        map[key] = std::string(600'000, 'x');
    }
    service_.WriteData("policy.json", tree_json::Write(zuv::TValue(map)));
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "zamDataProvider",
        "operation": "GetData", "calls": 2, "session_status": -2}]})");
    StartService();
    std::pair<unsigned long, ZamPolicy> policy;
    EXPECT_EQ(Provider().GetPolicy(policy), static_cast<int>(0x80000071U));
    EXPECT_EQ(policy.first, 0U);
    EXPECT_EQ(Provider().GetPolicy(policy), 0);
    EXPECT_TRUE(policy.second.tree.IsIdenticalTo(zuv::TValue(map)));
}

TEST_F(ServiceData, TwoThreadsTransferAtOnce) {
    service_.WriteData("policy.json", tree_json::Write(TreeOf(5'000)));
    StartService();
    const zuv::TValue expected = TreeOf(5'000);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 2; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 2; ++round) {
                std::pair<unsigned long, ZamPolicy> policy;
                EXPECT_EQ(Provider().GetPolicy(policy), 0);
                EXPECT_TRUE(policy.second.tree.IsIdenticalTo(expected));
                unsigned long hash = 0;
                EXPECT_EQ(Holder().SetSettings({expected}, hash), 0);
                EXPECT_EQ(hash, policy.first);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(Upload("settings").IsIdenticalTo(expected));
}

}  // namespace
}  // namespace zam_connector::test
