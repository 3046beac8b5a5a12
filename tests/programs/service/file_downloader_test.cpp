#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "daemon_fixture.h"
#include "failing_calls.h"
#include "result_codes.h"
#include "support/eventually.h"
#include "vd/service_locator.h"
#include "zam_connector/create_zam_connector.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using zam_connector::FileChunk;
using zam_connector::FileInfo;
using zam_service::testing::MemoryOfFiles;
using zam_test::Eventually;

constexpr int kLibraryFailure = static_cast<int>(0x8000004BU);

/// The library's file downloader over a daemon.
class FileDownloader : public zam_service::testing::DaemonFixture {
protected:
    FileDownloader() { fs::create_directory(data_.Path("files")); }

    void BeginDownloads(const std::string& faultRule = {}) {
        if (faultRule.empty()) {
            BeginFast();
        } else {
            BeginWithFault(R"({"endpoint": "fileDownloader", )" + faultRule + "}");
        }
        ASSERT_EQ(zam_connector::CreateZamFileDownloader("", downloader_), 0);
    }

    int Info(const std::string& path) { return downloader_->GetFileInfo({path}, info_); }

    int Chunk(const std::string& path, std::uint64_t offset = 0, std::uint32_t size = 0) {
        return downloader_->GetFileChunk({path, offset, size}, chunk_);
    }

    std::string Data() const {
        return {reinterpret_cast<const char*>(chunk_.data.data()), chunk_.data.size()};
    }

    bool IsCrcRight() const {
        return chunk_.crc32 ==
               ::crc32_z(0, reinterpret_cast<const Bytef*>(chunk_.data.data()), chunk_.data.size());
    }

    std::shared_ptr<zam_connector::IZamFileDownloader> downloader_;
    FileInfo info_;
    FileChunk chunk_;
};

TEST_F(FileDownloader, DescribesAFile) {
    data_.Write("files/abc", "abc");
    struct stat status {};
    ASSERT_EQ(::stat(data_.Path("files/abc").c_str(), &status), 0);
    BeginDownloads();
    ASSERT_EQ(Info("abc"), kNoError);
    EXPECT_EQ(info_.sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(info_.sizeBytes, 3U);
    EXPECT_EQ(info_.modificationTime.Count(), status.st_mtim.tv_sec);
    EXPECT_EQ(info_.chunkSizeBytes, zam_connector::kMaxFileChunkBytes);
}

TEST_F(FileDownloader, GivesAFileChunkByChunk) {
    std::string content;
    for (int line = 0; content.size() < 200'000; ++line) {
        content += "line " + std::to_string(line) + "\n";
    }
    fs::create_directories(data_.Path("files/a/b"));
    data_.Write("files/a/b/large", content);
    BeginDownloads();
    std::string got;
    std::string version;
    do {
        ASSERT_EQ(Chunk("a/b/large", got.size()), kNoError);
        EXPECT_EQ(chunk_.offset, got.size());
        EXPECT_EQ(chunk_.totalSizeBytes, content.size());
        EXPECT_TRUE(IsCrcRight());
        EXPECT_TRUE(got.empty() || chunk_.version == version);
        version = chunk_.version;
        got += Data();
    } while (got.size() < chunk_.totalSizeBytes);
    EXPECT_EQ(got, content);
    EXPECT_THAT(version, MatchesRegex("[0-9a-f]{16}"));
    ASSERT_EQ(Chunk("a/b/large", got.size()), kNoError);
    EXPECT_THAT(Data(), IsEmpty());
}

TEST_F(FileDownloader, TellsOfAChangeWithEveryChunk) {
    data_.Write("files/file", "first");
    BeginDownloads();
    ASSERT_EQ(Chunk("file", 0, 2), kNoError);
    const std::string first = chunk_.version;
    ASSERT_EQ(Chunk("file", 2, 2), kNoError);
    EXPECT_EQ(chunk_.version, first);

    data_.Write("files/file", "in place");
    ASSERT_EQ(Chunk("file", 4, 2), kNoError);
    EXPECT_EQ(Data(), "la");
    EXPECT_EQ(chunk_.totalSizeBytes, 8U);
    const std::string second = chunk_.version;
    EXPECT_NE(second, first);

    data_.Write("files/new", "replaced");
    fs::rename(data_.Path("files/new"), data_.Path("files/file"));
    ASSERT_EQ(Chunk("file", 0, 3), kNoError);
    EXPECT_EQ(Data(), "rep");
    EXPECT_NE(chunk_.version, second);

    fs::resize_file(data_.Path("files/file"), 2);
    EXPECT_EQ(Chunk("file", 3, 3), kInvalidIndex);
    EXPECT_EQ(chunk_.totalSizeBytes, 2U) << "whoever goes on behind the new end learns of it";

    fs::remove(data_.Path("files/file"));
    EXPECT_EQ(Chunk("file"), kNotFound);
    EXPECT_EQ(Info("file"), kNotFound);
    EXPECT_THAT(chunk_.version, IsEmpty());
}

TEST_F(FileDownloader, HashesAFileAgainWhenItHasChanged) {
    data_.Write("files/file", "first");
    BeginDownloads();
    ASSERT_EQ(Info("file"), kNoError);
    const FileInfo first = info_;
    data_.Write("files/file", "other");
    ASSERT_EQ(Info("file"), kNoError);
    EXPECT_EQ(info_.sizeBytes, first.sizeBytes);
    EXPECT_NE(info_.sha256, first.sha256);
}

TEST_F(FileDownloader, ReachesNothingOutsideItsFolder) {
    data_.Write("secret", "secret");
    data_.Write("files/file", "file");
    fs::create_directory(data_.Path("files/folder"));
    fs::create_symlink("../secret", data_.Path("files/link"));
    fs::create_symlink(data_.Path("secret"), data_.Path("files/absolute"));
    fs::create_symlink("..", data_.Path("files/folder/up"));
    fs::create_symlink("file", data_.Path("files/inner"));
    ASSERT_EQ(::mkfifo(data_.Path("files/pipe").c_str(), 0600), 0);
    BeginDownloads();
    const std::pair<std::string, int> rows[] = {
        {"", kInvalidArgument},
        {"/etc/passwd", kInvalidArgument},
        {"../secret", kInvalidArgument},
        {"folder/../../secret", kInvalidArgument},
        {"folder/..", kInvalidArgument},
        {"./file", kInvalidArgument},
        {std::string("file\0", 5), kInvalidArgument},
        {"link", kAccessDenied},
        {"absolute", kAccessDenied},
        {"folder/up/secret", kAccessDenied},
        {"folder/up/files/file", kAccessDenied},
        {"inner", kAccessDenied},
        {"folder", kAccessDenied},
        {"pipe", kAccessDenied},
        {"nothing", kNotFound},
        {"file/below", kNotFound},
        {std::string(300, 'x'), kNotFound},
    };
    for (const auto& [path, code] : rows) {
        EXPECT_EQ(Info(path), code) << path;
        EXPECT_EQ(Chunk(path), code) << path;
        EXPECT_THAT(Data(), IsEmpty()) << path;
    }
    EXPECT_EQ(Chunk("file"), kNoError);
    EXPECT_THAT(Logged(), HasSubstr("files/link': is, or leads through, a symbolic link"));
}

TEST_F(FileDownloader, NoticesThatAFolderOnTheWayHasBecomeALink) {
    fs::create_directories(data_.Path("files/folder"));
    fs::create_directories(data_.Path("elsewhere"));
    data_.Write("files/folder/file", "right");
    data_.Write("elsewhere/file", "wrong");
    BeginDownloads();
    ASSERT_EQ(Chunk("folder/file"), kNoError);
    fs::rename(data_.Path("files/folder"), data_.Path("files/away"));
    fs::create_symlink("../elsewhere", data_.Path("files/folder"));
    EXPECT_EQ(Chunk("folder/file"), kAccessDenied);
}

TEST_F(FileDownloader, ReadsAColdChunkOfTheFileThatIsOpen) {
    data_.Write("files/file", "first");
    data_.Write("files/new", "other");
    BeginDownloads();
    ASSERT_EQ(Chunk("file", 0, 2), kNoError);
    const MemoryOfFiles memory([this](off_t /*offset*/) {
        // Behind the look at the path, so that whoever opens it again gets the other one.
        std::error_code ignored;
        fs::rename(data_.Path("files/new"), data_.Path("files/file"), ignored);
        return false;
    });
    ASSERT_EQ(Chunk("file", 2, 2), kNoError);
    EXPECT_EQ(Data(), "rs");
    ASSERT_EQ(Chunk("file", 2, 2), kNoError);
    EXPECT_EQ(Data(), "he");
}

TEST_F(FileDownloader, ReadsAheadBehindAColdChunk) {
    data_.Write("files/file", "0123456789abcdef");
    std::atomic<bool> isReadAhead = false;
    const MemoryOfFiles memory([&isReadAhead](off_t offset) {
        isReadAhead = isReadAhead || offset == 12;
        return offset != 4;
    });
    BeginDownloads();
    for (const std::uint64_t offset : {0U, 4U, 8U}) {
        ASSERT_EQ(Chunk("file", offset, 4), kNoError);
    }
    EXPECT_EQ(Data(), "89ab");
    EXPECT_TRUE(Eventually([&isReadAhead] { return isReadAhead.load(); }));
    ASSERT_EQ(Chunk("file", 12, 4), kNoError);
    EXPECT_EQ(Data(), "cdef");
}

TEST_F(FileDownloader, ServesNothingWithoutAFolder) {
    fs::remove(data_.Path("files"));
    BeginDownloads();
    EXPECT_EQ(Info("file"), kNotFound);
    fs::create_directory(data_.Path("files"));
    data_.Write("files/file", "now");
    EXPECT_EQ(Chunk("file"), kNoError);
    EXPECT_EQ(Data(), "now");
}

TEST_F(FileDownloader, MeetsWithDamageThatItsCrcTells) {
    data_.Write("files/file", "content");
    BeginDownloads(R"("operation": "GetFileChunk", "damage": "chunk_data", "calls": 2)");
    ASSERT_EQ(Chunk("file"), kNoError);
    const FileChunk sound = chunk_;
    ASSERT_EQ(Chunk("file"), kNoError);
    EXPECT_EQ(Data(), "bontent");
    EXPECT_EQ(chunk_.crc32, sound.crc32);
    EXPECT_FALSE(IsCrcRight());
    ASSERT_EQ(Chunk("file"), kNoError);
    EXPECT_EQ(chunk_, sound);
}

TEST_F(FileDownloader, MeetsWithVersionsOfNoFile) {
    data_.Write("files/file", "content");
    BeginDownloads(R"("operation": "GetFileChunk", "damage": "chunk_version", "calls": 1)");
    ASSERT_EQ(Chunk("file"), kNoError);
    const std::string other = chunk_.version;
    EXPECT_EQ(Data(), "content");
    ASSERT_EQ(Chunk("file"), kNoError);
    EXPECT_NE(chunk_.version, other);
}

TEST_F(FileDownloader, MeetsWithResultCodesAndBrokenConnections) {
    data_.Write("files/file", "content");
    BeginDownloads(R"("operation": "*", "result_code": -9, "calls": [1, 2]},
        {"endpoint": "fileDownloader", "operation": "*", "drop": true, "calls": [3, 4]},
        {"endpoint": "fileDownloader", "operation": "*", "delay_ms": 1)");
    EXPECT_EQ(Info("file"), -9);
    EXPECT_EQ(Chunk("file"), -9);
    EXPECT_EQ(Info("file"), kLibraryFailure);
    EXPECT_EQ(Chunk("file"), kLibraryFailure);
    EXPECT_EQ(Info("file"), kNoError);
    EXPECT_EQ(Chunk("file"), kNoError);
}

}  // namespace
}  // namespace zam_service
