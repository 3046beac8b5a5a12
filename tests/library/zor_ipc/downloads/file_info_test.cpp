#include "download_calls.h"

namespace zam_connector {
namespace {

using test::FileInfoCall;
using test::FileLine;
using test::FileRig;
using test::Lines;
using ::testing::IsEmpty;

using InfoResponse = qx_zam_connector_ZamFileDownloader_GetFileInfo_rsp;

constexpr char kGetFileInfo[] = "GetFileInfo";

TEST(GetFileInfo, SendsThePathAndOffersAnEmptyZeroArena) {
    FileRig rig;
    rig.transport.Enqueue(test::InfoAnswer(test::SomeInfo()));
    FileInfo info;
    EXPECT_EQ(rig.proxy.GetFileInfo({"a/b"}, info), 0);
    EXPECT_EQ(info, test::SomeInfo());
    const auto call = rig.OnlyCall();
    EXPECT_EQ(call.transport, rig.transport.Get());
    EXPECT_EQ(call.requestHeader.riid, test::kFileRiid);
    EXPECT_EQ(call.requestHeader.operation, 0);
    EXPECT_EQ(call.request, (testing::Bytes{0, 0, 0, 0, 3, 0, 0, 0}));
    EXPECT_EQ(call.requestArena, (testing::Bytes{'a', '/', 'b'}));
    EXPECT_EQ(call.requestArenaCapacity, 1024U);
    EXPECT_EQ(call.response, testing::Bytes(40));
    EXPECT_TRUE(call.hasResponseArena);
    EXPECT_EQ(call.responseArenaCapacity, 1024U);
    EXPECT_EQ(call.responseArenaUsed, 0U);
    EXPECT_TRUE(call.responseArenaIsZero);
}

TEST(GetFileInfo, StoresNothingOfAnEmptyAnswer) {
    FileRig rig;
    InfoResponse response{};
    response.resultCode = test::kServiceFailure;
    rig.transport.Enqueue(testing::AnswerWith(response));
    FileInfo info = FileInfoCall::Old();
    EXPECT_EQ(rig.proxy.GetFileInfo({}, info), test::kServiceFailure);
    EXPECT_EQ(info, FileInfo());
}

TEST(GetFileInfo, TakesThePathThatFitsAndSendsNoLongerOne) {
    FileRig rig;
    rig.transport.Enqueue(test::InfoAnswer(test::SomeInfo()));
    FileInfo info;
    const std::string longest(1024, 'p');
    EXPECT_EQ(rig.proxy.GetFileInfo({longest}, info), 0);
    EXPECT_EQ(rig.OnlyCall().requestArena, testing::Bytes(1024, 'p'));
    info = FileInfoCall::Old();
    EXPECT_EQ(rig.proxy.GetFileInfo({longest + "p"}, info), test::kUnspecified);
    EXPECT_EQ(info, FileInfoCall::Old());
    EXPECT_EQ(rig.transport.Calls().size(), 1U);
    // -2147483556 is 0x8000005C, the code of a wrong size.
    EXPECT_EQ(rig.TakeLines(),
              Lines{FileLine(kGetFileInfo,
                             "ZamFileDownloader::GetFileInfo: -2147483556:path: 1025 bytes do not "
                             "fit, 1024 of the arena's 1024 bytes are free")});
}

TEST(GetFileInfo, LeavesTheDescriptionWhenTheAnswerCannotBeConverted) {
    FileRig rig;
    InfoResponse response{};
    response.info.sha256 = {1, 3};
    response.info.sizeBytes = 7;
    rig.transport.Enqueue(testing::AnswerWith(response, "123"));
    FileInfo info = FileInfoCall::Old();
    EXPECT_EQ(rig.proxy.GetFileInfo({"a"}, info), test::kUnspecified);
    EXPECT_EQ(info, FileInfoCall::Old());
    // -2147483554 is 0x8000005E, the code of an index out of range.
    EXPECT_EQ(rig.TakeLines(),
              Lines{FileLine(kGetFileInfo,
                             "ZamFileDownloader::GetFileInfo: -2147483554:sha256: offset 1 and "
                             "length 3 exceed the 3 bytes in use of the arena")});
}

TEST(GetFileInfo, LogsNothingBelowTheThreshold) {
    FileRig rig;
    rig.logger.SetThreshold(5);
    rig.transport.Enqueue(testing::FailWith(1));
    FileInfo info;
    EXPECT_EQ(rig.proxy.GetFileInfo({"a"}, info), test::kUnspecified);
    EXPECT_EQ(rig.proxy.GetFileInfo({std::string(1025, 'p')}, info), test::kUnspecified);
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
}

}  // namespace
}  // namespace zam_connector
