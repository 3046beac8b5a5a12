#include <typeinfo>

#include "data_rig.h"
#include "qel/exception.h"

namespace zam_connector {
namespace {

using ::testing::IsEmpty;

/// Checks what the construction from `record` throws.
template <typename Proxy, typename Record>
void ExpectRefused(const Record& record, const char* file, int line) {
    try {
        const Proxy refused(record);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const qel::Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(qel::InvalidArgumentException));
        EXPECT_EQ(exception.Code(), 0);
        EXPECT_STREQ(exception.File(), file);
        EXPECT_EQ(exception.Line(), line);
    }
}

/// Every record that lacks something; of two things it is the one checked first that is told.
template <typename Proxy, typename Record>
void ExpectChecks(const Record& sound, const char* file) {
    EXPECT_NO_THROW(const Proxy made(sound));
    for (int missing = 1; missing < 8; ++missing) {
        SCOPED_TRACE(missing);
        Record record = sound;
        if ((missing & 1) != 0) {
            record.transport = nullptr;
        }
        if ((missing & 2) != 0) {
            record.riid = 0xFFFF;
        }
        if ((missing & 4) != 0) {
            record.ops = nullptr;
        }
        ExpectRefused<Proxy>(record, file, (missing & 1) != 0 ? 20 : (missing & 2) != 0 ? 21 : 22);
    }
}

TEST(DataProxies, RefuseRecordsThatLackSomething) {
    testing::ScriptedTransport transport;
    ExpectChecks<proxy::ZamDataProviderProxy>(test::ProviderRecord(transport.Get()),
                                              "zam_data_provider_proxy");
    ExpectChecks<proxy::ProductDataHolderProxy>(test::HolderRecord(transport.Get()),
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
