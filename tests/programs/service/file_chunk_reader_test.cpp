#include "files/file_chunk_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "files/open_file.h"
#include "result_codes.h"
#include "support/temporary_folder.h"

namespace zam_service {
namespace {

using zam_connector::kMaxFileChunkBytes;
using zam_test::TemporaryFolder;

class ChunkReader : public ::testing::Test {
protected:
    ChunkReader() : files_(data_.Path()) { std::filesystem::create_directory(data_.Path("files")); }

    ChunkHead Read(std::uint64_t offset, std::uint32_t maxSizeBytes) {
        const OpenFilePtr file = OpenServed(files_, "file");
        bytes_.assign(kMaxFileChunkBytes, 0xEE);
        return ReadChunk(*file, {.path = "file", .offset = offset, .maxSizeBytes = maxSizeBytes},
                         bytes_.data(), DiskWait::Yes)
            .value();
    }

    std::string Bytes(const ChunkHead& head) const {
        return {reinterpret_cast<const char*>(bytes_.data()), head.sizeBytes};
    }

    TemporaryFolder data_;
    FolderFiles files_;
    std::vector<unsigned char> bytes_;
};

TEST_F(ChunkReader, ReadsTheStretchUpToTheEnd) {
    data_.Write("files/file", "0123456789");
    struct Row {
        std::uint64_t offset;
        std::uint32_t maxSizeBytes;
        int code;
        std::string bytes;
    };
    const Row rows[] = {
        {0, 10, kNoError, "0123456789"},
        {0, 9, kNoError, "012345678"},
        {0, 11, kNoError, "0123456789"},
        {9, 5, kNoError, "9"},
        {0, 0, kNoError, "0123456789"},
        {0, UINT32_MAX, kNoError, "0123456789"},
        {10, 1, kNoError, ""},
        {11, 1, kInvalidIndex, ""},
        {UINT64_MAX, 1, kInvalidIndex, ""},
    };
    for (const Row& row : rows) {
        const ChunkHead head = Read(row.offset, row.maxSizeBytes);
        EXPECT_EQ(head.code, row.code) << row.offset;
        EXPECT_EQ(Bytes(head), row.bytes) << row.offset;
        EXPECT_EQ(head.stamp.sizeBytes, 10U);
        EXPECT_EQ(head.crc32, ::crc32_z(0, bytes_.data(), head.sizeBytes));
    }
}

TEST_F(ChunkReader, ReadsNoMoreThanFitsAnAnswer) {
    data_.Write("files/file", std::string(kMaxFileChunkBytes + 100, 'x'));
    for (const std::uint32_t wanted : {0U, kMaxFileChunkBytes, kMaxFileChunkBytes + 1}) {
        EXPECT_EQ(Read(0, wanted).sizeBytes, kMaxFileChunkBytes) << wanted;
    }
    EXPECT_EQ(Read(0, kMaxFileChunkBytes - 1).sizeBytes, kMaxFileChunkBytes - 1);
    EXPECT_EQ(Read(kMaxFileChunkBytes, 0).sizeBytes, 100U);
}

TEST_F(ChunkReader, ReadsAFileBeyondFourGigabytes) {
    constexpr std::uint64_t kFar = (std::uint64_t{5} << 30U) + 3;
    data_.Write("files/file", "");
    std::filesystem::resize_file(data_.Path("files/file"), kFar + 4);
    const ChunkHead head = Read(kFar, 100);
    EXPECT_EQ(head.code, kNoError);
    EXPECT_EQ(Bytes(head), std::string(4, '\0'));
}

TEST_F(ChunkReader, ReadsTheSameWithoutWaitingOnceItIsInMemory) {
    data_.Write("files/file", std::string(1000, 'y'));
    const ChunkHead waited = Read(10, 500);
    const OpenFilePtr file = OpenServed(files_, "file");
    const auto head = ReadChunk(*file, {.path = "file", .offset = 10, .maxSizeBytes = 500},
                                bytes_.data(), DiskWait::No);
    if (head) {  // empty where the file system cannot tell
        EXPECT_EQ(head->sizeBytes, 500U);
        EXPECT_EQ(head->crc32, waited.crc32);
        EXPECT_EQ(head->stamp, waited.stamp);
    }
}

TEST(FileVersion, ChangesWithEveryPartOfTheStamp) {
    const auto version = [](const FileStamp& stamp) {
        std::string text(kVersionBytes, ' ');
        WriteVersion(stamp, reinterpret_cast<unsigned char*>(text.data()));
        return text;
    };
    const FileStamp stamp{1, 2, 3, 4, 5, 6, 7};
    EXPECT_THAT(version(stamp), ::testing::MatchesRegex("[0-9a-f]{16}"));
    EXPECT_EQ(version(stamp), version(FileStamp(stamp)));
    const FileStamp others[] = {{2, 2, 3, 4, 5, 6, 7}, {1, 3, 3, 4, 5, 6, 7}, {1, 2, 4, 4, 5, 6, 7},
                                {1, 2, 3, 5, 5, 6, 7}, {1, 2, 3, 4, 6, 6, 7}, {1, 2, 3, 4, 5, 7, 7},
                                {1, 2, 3, 4, 5, 6, 8}};
    for (const FileStamp& other : others) {
        EXPECT_NE(version(other), version(stamp));
    }
}

}  // namespace
}  // namespace zam_service
