#include "data_rig.h"
#include "record_checks.h"

namespace zam_connector {
namespace {

using ::testing::IsEmpty;

TEST(DataProxies, RefuseRecordsThatLackSomething) {
    testing::ScriptedTransport transport;
    test::ExpectChecks<proxy::ZamDataProviderProxy>(test::ProviderRecord(transport.Get()),
                                                    "zam_data_provider_proxy");
    test::ExpectChecks<proxy::ProductDataHolderProxy>(test::HolderRecord(transport.Get()),
                                                      "product_data_holder_proxy");
    EXPECT_THAT(transport.Calls(), IsEmpty());
}

TEST(DataProxies, KeepCopiesOfTheirRecords) {
    testing::ScriptedTransport transport;
    transport.SetDefault({});
    auto providerRecord = test::ProviderRecord(transport.Get());
    auto holderRecord = test::HolderRecord(transport.Get());
    proxy::ZamDataProviderProxy provider(providerRecord);
    proxy::ProductDataHolderProxy holder(holderRecord);
    providerRecord = {};
    holderRecord = {};
    unsigned long hash = 0;
    EXPECT_EQ(provider.GetPolicyHash(hash), 0);
    EXPECT_EQ(holder.SetAppInfoDynamic({}), 0);
    ASSERT_EQ(transport.Calls().size(), 2U);
    EXPECT_EQ(transport.Calls()[0].requestHeader.riid, test::kProviderRiid);
    EXPECT_EQ(transport.Calls()[1].requestHeader.riid, test::kHolderRiid);
}

}  // namespace
}  // namespace zam_connector
