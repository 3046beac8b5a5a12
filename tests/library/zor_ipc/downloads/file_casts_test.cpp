#include <cstring>
#include <functional>
#include <stdexcept>

#include "download_rig.h"
#include "support/conversions.h"

namespace zam_connector::common {
namespace {

using zam_test::Bytes;
using zam_test::BytesOf;
using zam_test::RecordOf;
using zam_test::TextOf;
using zam_test::UsedOf;

TEST(FileInfoParamsCast, HasTheseBytesBothWays) {
    HeapArena arena(4);
    vd_arena_alloc(arena.Get(), 1, 1);
    const FileInfoParams params{"a/b"};
    const auto wire = CastToVd(params, arena.Get());
    EXPECT_EQ(BytesOf(wire), (Bytes{1, 0, 0, 0, 3, 0, 0, 0}));
    EXPECT_EQ(UsedOf(arena.Get()), (Bytes{0, 'a', '/', 'b'}));
    EXPECT_EQ(CastFromVd(wire, arena.Get()), params);
    EXPECT_EQ(CastFromVd(qx_zam_connector_ZamTypes_FileInfoParams{}, nullptr), FileInfoParams());
}

TEST(FileInfoCast, HasTheseBytesBothWays) {
    FileInfo info = test::SomeInfo();
    info.sha256 = "af";
    HeapArena arena(2);
    const auto wire = CastToVd(info, arena.Get());
    EXPECT_EQ(BytesOf(wire),
              (Bytes{
                  0,    0,    0,    0,    2,    0,    0,    0,     // sha256
                  0x88, 0x87, 0x86, 0x85, 0x84, 0x83, 0x82, 0x81,  // sizeBytes
                  0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  // modificationTime
                  0,    0,    1,    0,    0,    0,    0,    0,     // chunkSizeBytes
              }));
    EXPECT_EQ(CastFromVd(wire, arena.Get()), info);
    EXPECT_EQ(CastFromVd(qx_zam_connector_ZamTypes_FileInfo{}, nullptr), FileInfo());
}

TEST(FileChunkParamsCast, HasTheseBytesBothWays) {
    const FileChunkParams params{"p", 0x0102'0304'0506'0708, 0xF1F2'F3F4};
    HeapArena arena(1);
    const auto wire = CastToVd(params, arena.Get());
    EXPECT_EQ(BytesOf(wire), (Bytes{
                                 0,    0,    0,    0,    1, 0, 0, 0,  // path
                                 8,    7,    6,    5,    4, 3, 2, 1,  // offset
                                 0xF4, 0xF3, 0xF2, 0xF1, 0, 0, 0, 0,  // maxSizeBytes, reserved
                             }));
    EXPECT_EQ(CastFromVd(wire, arena.Get()), params);
    EXPECT_EQ(CastFromVd(qx_zam_connector_ZamTypes_FileChunkParams{}, nullptr), FileChunkParams());
}

TEST(FileChunkCast, HasTheseBytesBothWays) {
    HeapArena arena(13);
    const auto wire = CastToVd(test::SomeChunk(), arena.Get());
    const Bytes expected{
        0x26, 0x39, 0xF4, 0xCB,                          // crc32
        0,    0,    0,    0,    2,    0,    0,    0,     // version
        0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,  // offset
        0xF8, 0xF7, 0xF6, 0xF5, 0xF4, 0xF3, 0xF2, 0xF1,  // totalSizeBytes
        4,    0,    0,    0,    9,    0,    0,    0,     // data
    };
    EXPECT_EQ(BytesOf(wire), expected);
    EXPECT_EQ(UsedOf(arena.Get()),
              (Bytes{'v', '1', 0, 0, '1', '2', '3', '4', '5', '6', '7', '8', '9'}));
    EXPECT_EQ(CastFromVd(RecordOf<qx_zam_connector_ZamTypes_FileChunk>(expected), arena.Get()),
              test::SomeChunk());
    EXPECT_EQ(CastFromVd(qx_zam_connector_ZamTypes_FileChunk{}, nullptr), FileChunk());
}

TEST(FileCasts, NeedRoomForWhatTheyPut) {
    HeapArena arena(4);
    FileChunk chunk;
    chunk.version = "12345";
    FileChunk data;
    data.data = test::DataOf("12345");
    const std::string tail = ": 5 bytes do not fit, 4 of the arena's 4 bytes are free";
    const auto text = [](const std::function<void()>& act) {
        return TextOf<std::length_error>(act);
    };
    EXPECT_EQ(text([&] { CastToVd(FileInfoParams{"12345"}, arena.Get()); }), "path" + tail);
    EXPECT_EQ(text([&] { CastToVd(FileInfo{"12345", 0, {}, 0}, arena.Get()); }), "sha256" + tail);
    EXPECT_EQ(text([&] { CastToVd(FileChunkParams{"12345", 0, 0}, arena.Get()); }), "path" + tail);
    EXPECT_EQ(text([&] { CastToVd(chunk, arena.Get()); }), "version" + tail);
    EXPECT_EQ(text([&] { CastToVd(data, arena.Get()); }), "data" + tail);
    EXPECT_THROW(CastToVd(FileInfo(), nullptr), std::invalid_argument);
}

/// Checks that the stretch at `offset` of a record must lie within the bytes in use.
template <typename Record>
void ExpectChecked(std::size_t offset, const char* field) {
    HeapArena arena(32);
    vd_arena_alloc(arena.Get(), 16, 1);
    for (const vd_bytes hostile :
         {vd_bytes{16, 1}, vd_bytes{17, 0}, vd_bytes{0, 17}, vd_bytes{0xFFFFFFF8, 8},
          vd_bytes{8, 0xFFFFFFF8}, vd_bytes{0xFFFFFFFF, 0xFFFFFFFF}}) {
        Record record{};
        std::memcpy(reinterpret_cast<unsigned char*>(&record) + offset, &hostile, sizeof hostile);
        EXPECT_EQ(TextOf<std::out_of_range>([&] { CastFromVd(record, arena.Get()); }),
                  std::string(field) + ": offset " + std::to_string(hostile.offset) +
                      " and length " + std::to_string(hostile.length) +
                      " exceed the 16 bytes in use of the arena");
        EXPECT_THROW(CastFromVd(record, nullptr), std::out_of_range);
    }
}

TEST(FileCasts, RefuseStretchesOutsideTheBytesInUse) {
    ExpectChecked<qx_zam_connector_ZamTypes_FileInfoParams>(0, "path");
    ExpectChecked<qx_zam_connector_ZamTypes_FileInfo>(0, "sha256");
    ExpectChecked<qx_zam_connector_ZamTypes_FileChunkParams>(0, "path");
    ExpectChecked<qx_zam_connector_ZamTypes_FileChunk>(4, "version");
    ExpectChecked<qx_zam_connector_ZamTypes_FileChunk>(28, "data");
}

TEST(FileRecords, CompareEveryField) {
    const std::function<void(FileInfo&)> infoChanges[] = {
        [](FileInfo& info) { info.sha256 += 'x'; },
        [](FileInfo& info) { ++info.sizeBytes; },
        [](FileInfo& info) { info.modificationTime = qor::types::Timestamp(9); },
        [](FileInfo& info) { ++info.chunkSizeBytes; },
    };
    for (const auto& change : infoChanges) {
        FileInfo info = test::SomeInfo();
        change(info);
        EXPECT_TRUE(info != test::SomeInfo());
    }
    const std::function<void(FileChunk&)> chunkChanges[] = {
        [](FileChunk& chunk) { ++chunk.crc32; },
        [](FileChunk& chunk) { chunk.version += 'x'; },
        [](FileChunk& chunk) { ++chunk.offset; },
        [](FileChunk& chunk) { ++chunk.totalSizeBytes; },
        [](FileChunk& chunk) { chunk.data.pop_back(); },
    };
    for (const auto& change : chunkChanges) {
        FileChunk chunk = test::SomeChunk();
        change(chunk);
        EXPECT_TRUE(chunk != test::SomeChunk());
    }
    EXPECT_TRUE((FileInfoParams{"a"}) != (FileInfoParams{"b"}));
    EXPECT_TRUE((FileChunkParams{"a", 1, 2}) != (FileChunkParams{"b", 1, 2}));
    EXPECT_TRUE((FileChunkParams{"a", 1, 2}) != (FileChunkParams{"a", 2, 2}));
    EXPECT_TRUE((FileChunkParams{"a", 1, 2}) != (FileChunkParams{"a", 1, 1}));
}

}  // namespace
}  // namespace zam_connector::common
