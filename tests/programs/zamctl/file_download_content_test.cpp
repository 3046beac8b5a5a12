// What comes is not what it should be.

#include "download_fixture.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using zam_connector::FileChunk;

TEST_F(FileDownloadTest, FetchesADamagedChunkAgain) {
    const std::vector<std::function<void(FileChunk&)>> damages = {
        [](FileChunk& chunk) { chunk.data[1] ^= std::byte{1}; },
        [](FileChunk& chunk) { ++chunk.crc32; }, [](FileChunk& chunk) { chunk.offset += 1; },
        [](FileChunk& chunk) {
            chunk.data.clear();
            chunk.crc32 = 0;
        },
        [](FileChunk& chunk) { chunk.data.pop_back(); }};
    for (const auto& damage : damages) {
        source_.asked.clear();
        source_.damage = [&damage](std::size_t call, FileChunk& chunk) {
            if (call == 2) {
                damage(chunk);
            }
        };
        const DownloadReport report = Fetch();
        EXPECT_EQ(report.damagedChunks, 1U);
        EXPECT_EQ(report.restarts, 0U);
        EXPECT_EQ(source_.asked.size(), 4U);
        EXPECT_EQ(Content(target_), "0123456789");
    }
}

TEST_F(FileDownloadTest, GivesUpAChunkThatIsAlwaysDamaged) {
    source_.damage = [](std::size_t /*call*/, FileChunk& chunk) { ++chunk.crc32; };
    EXPECT_THAT(Fail(), HasSubstr("the chunk at byte 0 of \"name\" came damaged 5 times"));
    EXPECT_EQ(source_.asked.size(), FileDownload::kMaxAttempts);
}

TEST_F(FileDownloadTest, BeginsAnewWhenTheFileChangesMeanwhile) {
    for (const std::string replacement : {"abcdefghij", "abc", "abcdefghijklmno"}) {
        SCOPED_TRACE(replacement);
        source_.content = "0123456789";
        source_.asked.clear();
        source_.onChunk = [this, &replacement](std::size_t call) {
            if (call == 3) {
                source_.Replace(replacement);
            }
            return 0;
        };
        EXPECT_EQ(Fetch().restarts, 1U);
        EXPECT_EQ(Content(target_), replacement);
        EXPECT_THAT(folder_.Names(), UnorderedElementsAre("file"));
    }
}

TEST_F(FileDownloadTest, GoesOnWhenOnlyTheVersionChanges) {
    source_.onChunk = [this](std::size_t call) {
        source_.version = "v" + std::to_string(call);
        return 0;
    };
    const DownloadReport report = Fetch();
    EXPECT_EQ(report.restarts, 0U);
    EXPECT_EQ(report.fetchedBytes, 10U);
    EXPECT_EQ(source_.described.size(), 3U);
}

TEST_F(FileDownloadTest, TakesAContentThatIsNewerThanItsDescription) {
    source_.onChunk = [this](std::size_t call) {
        if (call == 1) {
            source_.Replace("abcdefghij");
        }
        return 0;
    };
    const DownloadReport report = Fetch();
    EXPECT_EQ(report.restarts, 0U);
    EXPECT_EQ(report.content.sha256, Sha256Of("abcdefghij"));
    EXPECT_EQ(Content(target_), "abcdefghij");
}

TEST_F(FileDownloadTest, GivesUpAFileThatChangesAllTheTime) {
    source_.onChunk = [this](std::size_t call) {
        source_.Replace(std::string(10, static_cast<char>('a' + call)));
        return 0;
    };
    EXPECT_THAT(Fail(), HasSubstr("\"name\" changed 5 times while it was fetched"));
    EXPECT_THAT(folder_.Names(), IsEmpty());
}

TEST_F(FileDownloadTest, WaitsForAFileThatIsBeingWritten) {
    source_.onChunk = [](std::size_t call) {
        return call == 1 ? static_cast<int>(0x80000063U) : 0;
    };
    EXPECT_EQ(Fetch().interruptions, 1U);
    EXPECT_EQ(Content(target_), "0123456789");
}

TEST_F(FileDownloadTest, EndsAtADescriptionThatIsNone) {
    source_.sha256 = "abc";
    EXPECT_THAT(Fail(), HasSubstr("with the SHA-256 \"abc\", which is none"));
    source_.infoCode = static_cast<int>(0x8000004CU);
    EXPECT_THAT(Fail(), HasSubstr("cannot describe \"name\": the service answered 0x8000004C"));
    EXPECT_THAT(folder_.Names(), IsEmpty());
}

TEST_F(FileDownloadTest, SaysWhyTheFileCannotBeWritten) {
    target_ = folder_.Path("missing/file");
    EXPECT_THAT(Fail(), HasSubstr("cannot be opened: No such file or directory"));
    target_ = folder_.Path("file");
    fs::create_directory(target_ + ".part");
    EXPECT_THAT(Fail(), HasSubstr("cannot be opened: Is a directory"));
}

}  // namespace
}  // namespace zamctl::test
