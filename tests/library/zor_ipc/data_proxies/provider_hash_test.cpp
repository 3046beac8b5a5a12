#include "data_rig.h"

namespace zam_connector {
namespace {

using test::Lines;
using test::ProviderLine;
using test::ProviderRig;
using ::testing::IsEmpty;

using Provider = proxy::ZamDataProviderProxy;

testing::ScriptedAnswer HashAnswer(unsigned long hash, int code, int status = 0) {
    qx::HashResponse response{};
    response.hash = hash;
    response.resultCode = code;
    return testing::AnswerWith(response, {}, status);
}

/// A getter that stores the hash whatever the code is.
struct HashRow {
    int (Provider::*get)(unsigned long&) noexcept;
    unsigned operation;
    const char* function;
    const char* name;  ///< in its record
};

constexpr HashRow kHashRows[] = {
    {&Provider::GetPolicyHash, test::kGetPolicyHash, "GetPolicyHash", "GetPolicyHash"},
    {&Provider::GetSettingsHash, test::kGetSettingsHash, "GetSettingsHash", "GetSettingsHash"},
    {&Provider::GetSubscriptionHash, test::kGetSubscriptionHash, "GetSubscriptionHash",
     "GetSubscriptionsHash"},
    {&Provider::GetSyncedSettingsHash, test::kGetSyncedSettingsHash, "GetSyncedSettingsHash",
     "GetSyncedSettingsHash"},
};

TEST(HashGetters, CallTheirOperationWithoutFieldsAndArenas) {
    for (const HashRow& row : kHashRows) {
        SCOPED_TRACE(row.function);
        ProviderRig rig;
        rig.transport.Enqueue(HashAnswer(1, 0));
        unsigned long hash = 0;
        (rig.proxy.*row.get)(hash);
        const auto call = rig.OnlyCall();
        EXPECT_EQ(call.requestHeader.riid, test::kProviderRiid);
        EXPECT_EQ(call.requestHeader.operation, row.operation);
        EXPECT_EQ(call.request, testing::Bytes());
        EXPECT_FALSE(call.hasRequestArena);
        EXPECT_FALSE(call.hasResponseArena);
    }
}

TEST(HashGetters, StoreTheHashWhateverTheCodeIsAndReturnIt) {
    for (const HashRow& row : kHashRows) {
        for (const int code : test::kResultCodes) {
            SCOPED_TRACE(::testing::Message() << row.function << " " << code);
            ProviderRig rig;
            rig.transport.Enqueue(HashAnswer(0xF1F2F3F4F5F6F7F8, code));
            unsigned long hash = 5;
            EXPECT_EQ((rig.proxy.*row.get)(hash), code);
            EXPECT_EQ(hash, 0xF1F2F3F4F5F6F7F8);
            EXPECT_THAT(rig.TakeLines(), IsEmpty());
        }
    }
}

TEST(HashGetters, LeaveTheHashWhenTheTransportFailsAndSayWhichCallFailed) {
    for (const HashRow& row : kHashRows) {
        for (const int status : test::kTransportStatuses) {
            ProviderRig rig;
            rig.transport.Enqueue(HashAnswer(0xF1, 0, status));
            unsigned long hash = 5;
            EXPECT_EQ((rig.proxy.*row.get)(hash), test::kUnspecified);
            EXPECT_EQ(hash, 5U);
            EXPECT_EQ(rig.TakeLines(),
                      Lines{ProviderLine(
                          row.function, std::string("Zam_data_pvr proxy: ipc call ") + row.name +
                                            " terminated with a error " + std::to_string(status))});
        }
    }
}

TEST(UpdatesStatusHash, IsStoredOnSuccessOnlyWhichIsAlwaysZero) {
    for (const int code : test::kResultCodes) {
        SCOPED_TRACE(code);
        ProviderRig rig;
        rig.transport.Enqueue(HashAnswer(0xF1F2F3F4F5F6F7F8, code));
        unsigned long hash = 5;
        EXPECT_EQ(rig.proxy.GetZamUpdatesStatusHash(hash), code < 0 ? code : 0);
        EXPECT_EQ(hash, code < 0 ? 5 : 0xF1F2F3F4F5F6F7F8);
        EXPECT_THAT(rig.TakeLines(), IsEmpty());
        const auto call = rig.OnlyCall();
        EXPECT_EQ(call.requestHeader.operation, test::kGetUpdatesHash);
        EXPECT_EQ(call.request, testing::Bytes());
        EXPECT_FALSE(call.hasRequestArena || call.hasResponseArena);
    }
}

TEST(UpdatesStatusHash, IsLeftWhenTheTransportFails) {
    for (const int status : test::kTransportStatuses) {
        ProviderRig rig;
        rig.transport.Enqueue(HashAnswer(0xF1, 0, status));
        unsigned long hash = 5;
        EXPECT_EQ(rig.proxy.GetZamUpdatesStatusHash(hash), test::kUnspecified);
        EXPECT_EQ(hash, 5U);
        EXPECT_EQ(rig.TakeLines(),
                  Lines{"4 ipc_transfer_call IpcTransferCall: Ipc call GetZamUpdatesStatusHash "
                        "terminated with a error " +
                        std::to_string(status)});
    }
}

}  // namespace
}  // namespace zam_connector
