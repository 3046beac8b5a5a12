#include "download_calls.h"

namespace zam_connector {
namespace {

using test::FileChunkCall;
using test::FileLine;
using test::FileRig;
using test::Lines;
using ::testing::IsEmpty;

using ChunkResponse = qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp;

constexpr char kGetFileChunk[] = "GetFileChunk";
const FileChunkParams kChunkParams = FileChunkCall::Parameters();

TEST(GetFileChunk, SendsTheStretchAndOffersAnEmptyZeroArena) {
    FileRig rig;
    rig.transport.Enqueue(test::ChunkAnswer(test::SomeChunk()));
    FileChunk chunk;
    EXPECT_EQ(rig.proxy.GetFileChunk(kChunkParams, chunk), 0);
    EXPECT_EQ(chunk, test::SomeChunk());
    const auto call = rig.OnlyCall();
    EXPECT_EQ(call.requestHeader.riid, test::kFileRiid);
    EXPECT_EQ(call.requestHeader.operation, 1);
    EXPECT_EQ(call.request, (testing::Bytes{0,    0,    0,    0,    3, 0, 0, 0,     // path
                                            8,    7,    6,    5,    4, 3, 2, 1,     // offset
                                            0xF4, 0xF3, 0xF2, 0xF1, 0, 0, 0, 0}));  // maxSizeBytes
    EXPECT_EQ(call.requestArena, (testing::Bytes{'a', '/', 'b'}));
    EXPECT_EQ(call.requestArenaCapacity, 1024U);
    EXPECT_EQ(call.response, testing::Bytes(40));
    EXPECT_EQ(call.responseArenaCapacity, 66560U);
    EXPECT_EQ(call.responseArenaUsed, 0U);
    EXPECT_TRUE(call.responseArenaIsZero);
}

TEST(GetFileChunk, ReadsTheseBytes) {
    FileRig rig;
    testing::ScriptedAnswer answer;
    answer.response = {
        0x26, 0x39, 0xF4, 0xCB,                          // crc32
        9,    0,    0,    0,    2,    0,    0,    0,     // version
        0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,  // offset
        0xF8, 0xF7, 0xF6, 0xF5, 0xF4, 0xF3, 0xF2, 0xF1,  // totalSizeBytes
        0,    0,    0,    0,    9,    0,    0,    0,     // data
        0x4C, 0x00, 0x00, 0x80,                          // result code
    };
    answer.arena = {'1', '2', '3', '4', '5', '6', '7', '8', '9', 'v', '1'};
    rig.transport.Enqueue(answer);
    FileChunk chunk;
    EXPECT_EQ(rig.proxy.GetFileChunk(kChunkParams, chunk), test::kServiceFailure);
    EXPECT_EQ(chunk, test::SomeChunk());
}

TEST(GetFileChunk, HasRoomForTheLargestChunkWithItsVersion) {
    FileRig rig;
    FileChunk largest = test::SomeChunk();
    largest.version = std::string(1024, 'v');
    largest.data = std::vector<std::byte>(kMaxFileChunkBytes, std::byte{0xD5});
    rig.transport.Enqueue(test::ChunkAnswer(largest));
    FileChunk chunk;
    EXPECT_EQ(rig.proxy.GetFileChunk(kChunkParams, chunk), 0);
    EXPECT_EQ(chunk, largest);
}

TEST(GetFileChunk, TakesAWholeArenaOfData) {
    FileRig rig;
    FileChunk whole;
    whole.data = std::vector<std::byte>(66560, std::byte{1});
    rig.transport.Enqueue(test::ChunkAnswer(whole));
    FileChunk chunk = FileChunkCall::Old();
    EXPECT_EQ(rig.proxy.GetFileChunk(kChunkParams, chunk), 0);
    EXPECT_EQ(chunk, whole);
}

TEST(GetFileChunk, SendsNoPathThatDoesNotFit) {
    FileRig rig;
    FileChunk chunk = FileChunkCall::Old();
    EXPECT_EQ(rig.proxy.GetFileChunk({std::string(1025, 'p'), 0, 0}, chunk), test::kUnspecified);
    EXPECT_EQ(chunk, FileChunkCall::Old());
    EXPECT_THAT(rig.transport.Calls(), IsEmpty());
    EXPECT_EQ(rig.TakeLines(),
              Lines{FileLine(kGetFileChunk,
                             "ZamFileDownloader::GetFileChunk: -2147483556:path: 1025 bytes do not "
                             "fit, 1024 of the arena's 1024 bytes are free")});
}

TEST(GetFileChunk, LeavesTheChunkWhenTheAnswerCannotBeConverted) {
    FileRig rig;
    ChunkResponse response{};
    response.chunk.data = {0xFFFFFFFF, 2};
    rig.transport.Enqueue(testing::AnswerWith(response, "123"));
    FileChunk chunk = FileChunkCall::Old();
    EXPECT_EQ(rig.proxy.GetFileChunk(kChunkParams, chunk), test::kUnspecified);
    EXPECT_EQ(chunk, FileChunkCall::Old());
    EXPECT_EQ(rig.TakeLines(),
              Lines{FileLine(kGetFileChunk,
                             "ZamFileDownloader::GetFileChunk: -2147483554:data: offset 4294967295 "
                             "and length 2 exceed the 3 bytes in use of the arena")});
}

}  // namespace
}  // namespace zam_connector
