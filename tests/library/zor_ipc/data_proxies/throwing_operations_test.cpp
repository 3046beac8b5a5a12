#include <new>

#include "data_rig.h"

// Operations that throw stand for whatever else can: want of memory above all.

namespace zam_connector {
namespace {

using test::HolderLine;
using test::HolderRig;
using test::Lines;
using test::ProviderLine;
using test::ProviderRig;
using test::ThrowText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

template <typename... Arguments>
int ThrowNoMemory(Arguments... /*arguments*/) {
    throw std::bad_alloc();
}

/// A provider whose operations a test can replace.
class ThrowingProvider : public ::testing::Test {
protected:
    proxy::ZamDataProviderProxy Proxy() {
        auto record = test::ProviderRecord(rig_.transport.Get());
        record.ops = &ops_;
        return proxy::ZamDataProviderProxy(record);
    }

    qx_zam_connector_ZamDataProvider_ops ops_ = qx_zam_connector_ZamDataProvider_operations;
    ProviderRig rig_;
};

TEST_F(ThrowingProvider, FailsInEverySingleCall) {
    ops_.GetPolicyHash = &ThrowText;
    ops_.GetSettingsHash = &ThrowText;
    ops_.GetSubscriptionHash = &ThrowText;
    ops_.GetSyncedSettingsHash = &ThrowText;
    ops_.GetZamUpdatesStatusHash = &ThrowText;
    ops_.GetZamServerData = &ThrowText;
    ops_.GetZamReserveCert = &ThrowText;
    auto proxy = Proxy();
    unsigned long hash = 5;
    EXPECT_EQ(proxy.GetPolicyHash(hash), test::kUnspecified);
    EXPECT_EQ(proxy.GetSettingsHash(hash), test::kUnspecified);
    EXPECT_EQ(proxy.GetSubscriptionHash(hash), test::kUnspecified);
    EXPECT_EQ(proxy.GetSyncedSettingsHash(hash), test::kUnspecified);
    EXPECT_EQ(proxy.GetZamUpdatesStatusHash(hash), test::kUnspecified);
    EXPECT_EQ(hash, 5U);
    ZamServerData data;
    EXPECT_EQ(proxy.GetZamServerData(data), test::kUnspecified);
    std::string cert = "as it was";
    EXPECT_EQ(proxy.GetZamReserveCert(cert), test::kUnspecified);
    EXPECT_EQ(cert, "as it was");
    const std::string thrown = "std::exception: boom {}";
    EXPECT_EQ(rig_.TakeLines(),
              (Lines{ProviderLine("GetPolicyHash", "Zam_data_pvr proxy: " + thrown),
                     ProviderLine("GetSettingsHash", "Zam_data_pvr proxy: " + thrown),
                     ProviderLine("GetSubscriptionHash", "Zam_data_pvr proxy: " + thrown),
                     ProviderLine("GetSyncedSettingsHash", "Zam_data_pvr proxy: " + thrown),
                     ProviderLine("GetZamUpdatesStatusHash", "Zam_data_pvr proxy: " + thrown),
                     ProviderLine("GetZamServerData", "ZamDataProviderProxy: " + thrown),
                     ProviderLine("GetZamReserveCert", "ZamDataProviderProxy: " + thrown)}));
}

TEST_F(ThrowingProvider, FailsToOpenTheUpdatesStatus) {
    ops_.OpenZamUpdatesStatusChannel = &ThrowText;
    std::pair<unsigned long, ZamUpdatesStatus> status{5, {}};
    EXPECT_EQ(Proxy().GetZamUpdatesStatus(status), test::kUnspecified);
    EXPECT_EQ(status.first, 5U);
    EXPECT_EQ(rig_.TakeLines(),
              Lines{ProviderLine("OpenZamUpdatesStatusChannel",
                                 "GetZamUpdatesStatus: Can't open zam update status channel "
                                 "std::exception: boom {}")});
    EXPECT_THAT(rig_.Operations(), IsEmpty());
    long channel = 1;
    unsigned long hash = 2;
    EXPECT_EQ(Proxy().OpenZamUpdatesStatusChannel(channel, hash), test::kUnspecified);
    EXPECT_EQ(channel, 1);
    EXPECT_EQ(hash, 2U);
}

TEST_F(ThrowingProvider, FailsToCloseTheUpdatesStatus) {
    ops_.CloseZamUpdatesStatusChannel = &ThrowText;
    rig_.updates[0] = {{test::MakeId(1)}};
    std::pair<unsigned long, ZamUpdatesStatus> status{5, {}};
    EXPECT_EQ(Proxy().GetZamUpdatesStatus(status), test::kUnspecified);
    EXPECT_EQ(status.first, 5U);
    EXPECT_THAT(status.second.approved, IsEmpty());
    EXPECT_EQ(rig_.TakeLines(),
              Lines{ProviderLine("CloseZamUpdatesStatusChannel",
                                 "GetZamUpdatesStatus: Can't close zam update status "
                                 "channelstd::exception: boom {}")});
    EXPECT_EQ(Proxy().CloseZamUpdatesStatusChannel(1), test::kUnspecified);
}

TEST_F(ThrowingProvider, ClosesTheUpdatesStatusWhenAPullThrows) {
    ops_.GetUpdatesStatus = &ThrowNoMemory;
    std::pair<unsigned long, ZamUpdatesStatus> status{5, {}};
    EXPECT_EQ(Proxy().GetZamUpdatesStatus(status), test::kUnspecified);
    EXPECT_EQ(status.first, 5U);
    EXPECT_EQ(rig_.TakeLines(),
              Lines{ProviderLine("GetZamUpdatesStatus",
                                 "GetZamUpdatesStatus: Can't get zam update status code "
                                 "-2147483573 description std::exception: std::bad_alloc")});
    EXPECT_THAT(rig_.Operations(), ElementsAre(test::kOpenUpdates, test::kCloseUpdates));
}

TEST(ThrowingTransfer, ClosesTheTreesChannelWhicheverStepThrows) {
    for (int step = 0; step < 3; ++step) {
        ProviderRig rig;
        rig.Give(1);
        auto ops = qx_zam_connector_ZamDataProvider_operations;
        if (step == 0) {
            ops.GetData = &ThrowNoMemory;
        } else if (step == 1) {
            ops.GetZamHash = &ThrowNoMemory;
        } else {
            ops.GetZamResult = &ThrowNoMemory;
        }
        auto record = test::ProviderRecord(rig.transport.Get());
        record.ops = &ops;
        proxy::ZamDataProviderProxy proxy(record);
        std::pair<unsigned long, ZamProductSettings> settings{5, {zuv::TValue("before")}};
        EXPECT_EQ(proxy.GetProductSettings(settings), test::kUnspecified);
        EXPECT_EQ(settings.first, 5U);
        EXPECT_EQ(settings.second.tree, zuv::TValue("before"));
        EXPECT_EQ(rig.TakeLines(),
                  Lines{ProviderLine("GetProductSettings",
                                     "Zam_data_pvr proxy: std::exception: std::bad_alloc")});
        EXPECT_EQ(rig.Operations().back(), test::kCloseChannel);
    }
}

TEST_F(ThrowingProvider, LetsTheThrowingCloseOfATreeWin) {
    ops_.CloseChannel = &ThrowText;
    rig_.Give(1);
    std::pair<unsigned long, ZamPolicy> policy;
    EXPECT_EQ(Proxy().GetPolicy(policy), test::kUnspecified);
    EXPECT_EQ(policy.second.tree, zuv::TValue(1));
    EXPECT_EQ(rig_.TakeLines(),
              Lines{ProviderLine("GetPolicy", "Zam_data_pvr proxy: std::exception: boom {}")});
}

TEST_F(ThrowingProvider, FailsToOpenATree) {
    ops_.OpenPolicyChannel = &ThrowText;
    std::pair<unsigned long, ZamPolicy> policy;
    EXPECT_EQ(Proxy().GetPolicy(policy), test::kUnspecified);
    EXPECT_EQ(rig_.TakeLines(),
              Lines{ProviderLine("GetPolicy", "Zam_data_pvr proxy: std::exception: boom {}")});
    EXPECT_THAT(rig_.Operations(), IsEmpty());
}

TEST_F(ThrowingProvider, FailsToGetSubscriptions) {
    ops_.GetSubscriptions = &ThrowText;
    std::pair<unsigned long, ZamSubscriptions> subscriptions{5, {}};
    EXPECT_EQ(Proxy().GetSubscriptions(subscriptions), test::kUnspecified);
    EXPECT_EQ(subscriptions.first, 5U);
    EXPECT_EQ(rig_.TakeLines(), Lines{ProviderLine("GetSubscriptions",
                                                   "Zam_data_pvr proxy: std::exception: boom {}")});
}

/// A holder whose operations a test can replace.
class ThrowingHolder : public ::testing::Test {
protected:
    /// Sends a tree of one record, which fails with the hash as it was.
    void ExpectFailure(const std::vector<unsigned>& operations) {
        auto record = test::HolderRecord(rig_.transport.Get());
        record.ops = &ops_;
        proxy::ProductDataHolderProxy proxy(record);
        unsigned long hash = 5;
        EXPECT_EQ(proxy.SetSettings({zuv::TValue(1)}, hash), test::kUnspecified);
        EXPECT_EQ(hash, 5U);
        EXPECT_EQ(
            rig_.TakeLines(),
            Lines{HolderLine("SetSettings", "ProductDataHolderProxy: std::exception: boom {}")});
        EXPECT_EQ(rig_.Operations(), operations);
    }

    qx_zam_connector_ProductDataHolder_ops ops_ = qx_zam_connector_ProductDataHolder_operations;
    HolderRig rig_;
};

TEST_F(ThrowingHolder, FailsToOpen) {
    ops_.OpenSetSettingsChannel = &ThrowText;
    ExpectFailure({});
}

TEST_F(ThrowingHolder, ClosesWhenSendingThrows) {
    ops_.SendData = &ThrowText;
    ExpectFailure({test::kOpenSetSettingsChannel, test::kCloseHolderChannel});
}

TEST_F(ThrowingHolder, FailsToClose) {
    ops_.CloseChannel = &ThrowText;
    ExpectFailure({test::kOpenSetSettingsChannel, test::kSendData});
}

TEST_F(ThrowingHolder, FailsToSetAppInfo) {
    ops_.SetAppInfo = &ThrowText;
    auto record = test::HolderRecord(rig_.transport.Get());
    record.ops = &ops_;
    EXPECT_EQ(proxy::ProductDataHolderProxy(record).SetAppInfo({}), test::kUnspecified);
    EXPECT_EQ(rig_.TakeLines(),
              Lines{HolderLine("SetAppInfo", "ProductDataHolderProxy: std::exception: boom {}")});
}

TEST_F(ThrowingHolder, FailsToSetAppInfoDynamic) {
    ops_.SetAppInfoDynamic = &ThrowText;
    auto record = test::HolderRecord(rig_.transport.Get());
    record.ops = &ops_;
    EXPECT_EQ(proxy::ProductDataHolderProxy(record).SetAppInfoDynamic({}), test::kUnspecified);
    EXPECT_EQ(
        rig_.TakeLines(),
        Lines{HolderLine("SetAppInfoDynamic", "ProductDataHolderProxy: std::exception: boom {}")});
}

}  // namespace
}  // namespace zam_connector
