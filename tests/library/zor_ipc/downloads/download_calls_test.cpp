// What holds for every call that downloads something.

#include "download_calls.h"

namespace zam_connector {
namespace {

using test::Lines;
using ::testing::IsEmpty;

template <typename Call>
class DownloadCall : public ::testing::Test {};

struct CallNames {
    template <typename Call>
    static std::string GetName(int /*number*/) {
        return Call::kName;
    }
};

using Calls =
    ::testing::Types<test::FileInfoCall, test::FileChunkCall, test::ClientCertificatesCall>;
TYPED_TEST_SUITE(DownloadCall, Calls, CallNames);

TYPED_TEST(DownloadCall, StoresTheResultWhateverTheCodeIs) {
    for (const int code : test::kResultCodes) {
        SCOPED_TRACE(code);
        typename TypeParam::Rig rig;
        rig.transport.Enqueue(TypeParam::Answer(code));
        auto result = TypeParam::Old();
        EXPECT_EQ(TypeParam::Make(rig.proxy, result), code);
        EXPECT_EQ(result, TypeParam::Some());
        EXPECT_THAT(rig.TakeLines(), IsEmpty());
    }
}

TYPED_TEST(DownloadCall, LeavesTheResultWhenTheTransportFails) {
    for (const int status : test::kTransportStatuses) {
        typename TypeParam::Rig rig;
        rig.transport.Enqueue(TypeParam::Answer(0, status));
        auto result = TypeParam::Old();
        EXPECT_EQ(TypeParam::Make(rig.proxy, result), test::kUnspecified);
        EXPECT_EQ(result, TypeParam::Old());
        EXPECT_EQ(rig.TakeLines(),
                  Lines{TypeParam::Line(std::string(TypeParam::kClass) + ": ipc call " +
                                        TypeParam::kName + " terminated with a error " +
                                        std::to_string(status))});
    }
}

TYPED_TEST(DownloadCall, CatchesWhateverTheCallThrows) {
    typename TypeParam::Rig rig;
    const auto ops = TypeParam::ThrowingOperations();
    auto record = TypeParam::Record(rig.transport.Get());
    record.ops = &ops;
    typename TypeParam::Proxy proxy(record);
    auto result = TypeParam::Old();
    EXPECT_EQ(TypeParam::Make(proxy, result), test::kUnspecified);
    EXPECT_EQ(result, TypeParam::Old());
    EXPECT_EQ(rig.TakeLines(),
              Lines{TypeParam::Line(std::string(TypeParam::kClass) + "::" + TypeParam::kName +
                                    ": -2147483573:std::exception: boom {}")});
}

}  // namespace
}  // namespace zam_connector
