#include "files/sequential_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "result_codes.h"
#include "support/temporary_folder.h"

namespace zam_service {
namespace {

using zam_test::TemporaryFolder;

constexpr std::uint32_t kChunk = 4;

class ReadingAhead : public ::testing::Test {
protected:
    ReadingAhead() : files_(data_.Path()) {
        std::filesystem::create_directory(data_.Path("files"));
        Write("0123456789abcdef");
    }

    void SetUp() override {
        if (!reader_.Read(file_, {"file", 0, 1}, answer_)) {
            GTEST_SKIP() << "the file system does not tell what it has in memory";
        }
    }

    void Write(const std::string& text) {
        data_.Write("files/file", text);
        file_ = OpenServed(files_, "file");
    }

    /// The chunk at an offset; then what was left on the loop is run.
    std::string Read(std::uint64_t offset, std::uint32_t size = kChunk) {
        const auto head = reader_.Read(file_, {"file", offset, size}, answer_);
        EXPECT_TRUE(head);
        EXPECT_EQ(head->code, kNoError);
        loop_.restart();
        loop_.poll();
        return {reinterpret_cast<const char*>(answer_.data()) + kChunkDataOffset, head->sizeBytes};
    }

    TemporaryFolder data_;
    FolderFiles files_;
    OpenFilePtr file_;
    asio::io_context loop_;
    SequentialReader reader_{loop_};
    std::vector<unsigned char> answer_ = std::vector<unsigned char>(kChunkAnswerBytes);
};

TEST_F(ReadingAhead, BeginsWithTheSecondChunkInARow) {
    EXPECT_EQ(Read(0), "0123");
    EXPECT_EQ(Read(4), "4567");
    EXPECT_EQ(reader_.Foreseen(), 0U);
    EXPECT_EQ(Read(8), "89ab");
    EXPECT_EQ(Read(12), "cdef");
    EXPECT_EQ(reader_.Foreseen(), 2U);
    EXPECT_EQ(Read(16), "") << "nothing is foreseen behind the end";
    EXPECT_EQ(reader_.Foreseen(), 2U);
}

TEST_F(ReadingAhead, GivesUpWhatIsNotAskedForNext) {
    Read(0);
    Read(4);
    EXPECT_EQ(Read(12), "cdef");
    EXPECT_EQ(Read(8), "89ab");
    EXPECT_EQ(Read(12, 2), "cd");
    EXPECT_EQ(reader_.Foreseen(), 0U);
}

TEST_F(ReadingAhead, GivesUpWhatHasChangedMeanwhile) {
    Read(0);
    Read(4);
    data_.Write("files/file", "another text");
    EXPECT_EQ(Read(8), "text");
    EXPECT_EQ(reader_.Foreseen(), 0U);
}

TEST_F(ReadingAhead, ReadsNothingInVainForClientsThatTakeTurns) {
    for (std::uint64_t offset = 0; offset < 8; offset += kChunk) {
        EXPECT_EQ(Read(offset), std::string("0123456789").substr(offset, kChunk));
        EXPECT_EQ(Read(offset, 2), std::string("0123456789").substr(offset, 2));
    }
    EXPECT_EQ(reader_.Foreseen(), 0U);
}

TEST_F(ReadingAhead, EndsWhenItIsClosed) {
    Read(0);
    reader_.Read(file_, {"file", 4, kChunk}, answer_);
    reader_.Close();
    loop_.restart();
    loop_.poll();
    EXPECT_EQ(Read(8), "89ab");
    EXPECT_EQ(reader_.Foreseen(), 0U);
}

}  // namespace
}  // namespace zam_service
