#include "data/data_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "run_until.h"
#include "support/temporary_folder.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using zam_connector::testing::LogRecord;
using zam_connector::testing::RecordingLogger;
using zam_json::JsonValue;
using zam_service::testing::RunUntil;
using zam_test::TemporaryFolder;

/// Content of a file of one number.
struct Number {
    std::uint64_t value = 0;
};

Number ReadNumber(const JsonValue& root) {
    root.CheckMembers({"number"});
    return {root.At("number").Unsigned(1, 100)};
}

class DataFolderTest : public ::testing::Test {
protected:
    DataFolderTest() {
        fs::create_directory(parent_.Path("data"));
        files_.emplace(parent_.Path("data"));
    }
    ~DataFolderTest() override {
        if (folder_) {
            folder_->Close();
            workers_.Finish();
            loop_.restart();
            loop_.poll();
        }
    }

    void Begin() {
        folder_.emplace(loop_, workers_, *files_);
        folder_->Serve(ServeJson<Number>("number.json", kReadLane, ReadNumber,
                                         [this](Number number) { number_ = number.value; }));
    }

    void Write(std::string_view text) const { parent_.Write("data/number.json", text); }

    bool Becomes(std::uint64_t number) {
        return RunUntil(loop_, [this, number] { return number_ == number; });
    }

    /// Waits for a record whose text has `part` in it.
    std::optional<LogRecord> Logged(const std::string& part) {
        std::optional<LogRecord> found;
        RunUntil(loop_, [&] {
            for (const LogRecord& record : logger_.Records()) {
                if (record.text.find(part) != std::string::npos) {
                    found = record;
                }
            }
            return found.has_value();
        });
        return found;
    }

    RecordingLogger logger_;
    TemporaryFolder parent_;
    std::optional<FolderFiles> files_;
    asio::io_context loop_;
    zam_platform::WorkerPool workers_{2, kLaneCount, kMaxJobs};
    std::optional<DataFolder> folder_;
    std::optional<std::uint64_t> number_;
};

TEST_F(DataFolderTest, ServesWhatIsThereAtTheStart) {
    Write(R"({"number": 5})");
    Begin();
    EXPECT_EQ(number_, 5U);
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(DataFolderTest, ServesTheDefaultWithoutAFile) {
    Begin();
    EXPECT_EQ(number_, 0U);
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(DataFolderTest, LogsAWrongFileAtTheStartAndLeavesTheDefault) {
    Write("{\n  \"number\": 101}");
    Begin();
    EXPECT_EQ(number_, std::nullopt);
    ASSERT_EQ(logger_.Records().size(), 1U);
    const LogRecord record = logger_.Records()[0];
    EXPECT_EQ(record.level, 4);
    EXPECT_EQ(record.file, "data_folder");
    EXPECT_EQ(record.text,
              "number.json:2:13: at \"/number\": is 101, allowed is a whole number from 1 to 100: "
              "its default is served");
}

TEST_F(DataFolderTest, ServesAnEditAndLogsIt) {
    Begin();
    Write(R"({"number": 6})");
    ASSERT_TRUE(Becomes(6));
    const auto record = Logged("number.json: read again");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->level, 2);
    EXPECT_EQ(record->file, "data_folder");
}

TEST_F(DataFolderTest, ServesAFileThatWasMovedOverTheOneBefore) {
    Write(R"({"number": 5})");
    Begin();
    parent_.Write("other", R"({"number": 7})");
    fs::rename(parent_.Path("other"), parent_.Path("data/number.json"));
    EXPECT_TRUE(Becomes(7));
}

TEST_F(DataFolderTest, ServesTheDefaultOnceTheFileIsGone) {
    Write(R"({"number": 5})");
    Begin();
    fs::remove(parent_.Path("data/number.json"));
    EXPECT_TRUE(Becomes(0));
    EXPECT_TRUE(Logged("its default is served"));
}

TEST_F(DataFolderTest, KeepsTheLastGoodVersionOfAWrongEdit) {
    Write(R"({"number": 5})");
    Begin();
    Write(R"({"number": })");
    const auto record = Logged("the last good version stays");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->level, 4);
    EXPECT_THAT(record->text, ::testing::StartsWith("number.json:1:12: at \"/number\": "));
    EXPECT_EQ(number_, 5U);
    Write(R"({"number": 8})");
    EXPECT_TRUE(Becomes(8));
}

TEST_F(DataFolderTest, DoesNotServeAHalfWrittenFile) {
    Write(R"({"number": 5})");
    Begin();
    std::ofstream half(parent_.Path("data/number.json"), std::ios::trunc);
    half << R"({"num)" << std::flush;
    // Read in its turn, this one shows that the notices before it have been dealt with.
    folder_->Serve(ServeJson<Number>("marker.json", kReadLane, ReadNumber, [this](Number number) {
        number_ = number.value == 0 ? number_ : number_.value_or(0) + number.value;
    }));
    parent_.Write("data/marker.json", R"({"number": 1})");
    ASSERT_TRUE(Becomes(6));
    half << R"(ber": 9})";
    half.close();
    EXPECT_TRUE(Becomes(9));
}

TEST_F(DataFolderTest, TakesAFileThatIsWrittenAnewForNoneThatIsGone) {
    Write(R"({"number": 5})");
    Begin();
    fs::rename(parent_.Path("data/number.json"), parent_.Path("data/number.json~"));
    std::ofstream half(parent_.Path("data/number.json"));
    half << R"({"num)" << std::flush;
    const auto settled = std::chrono::steady_clock::now() + std::chrono::milliseconds(80);
    EXPECT_TRUE(RunUntil(loop_, [&] { return std::chrono::steady_clock::now() >= settled; }));
    EXPECT_EQ(number_, 5U);
    EXPECT_TRUE(logger_.Records().empty());
    half << R"(ber": 9})";
    half.close();
    EXPECT_TRUE(Becomes(9));
}

TEST_F(DataFolderTest, ReadsAFileThatIsBackAsALink) {
    Write(R"({"number": 5})");
    Begin();
    parent_.Write("data/source", R"({"number": 6})");
    fs::remove(parent_.Path("data/number.json"));
    fs::create_hard_link(parent_.Path("data/source"), parent_.Path("data/number.json"));
    EXPECT_TRUE(Becomes(6));
}

TEST_F(DataFolderTest, KeepsWhatItReadWhileTheFolderIsAwayAndReadsItWhenItIsBack) {
    Write(R"({"number": 5})");
    Begin();
    fs::rename(parent_.Path("data"), parent_.Path("old"));
    const auto record = Logged("was moved or removed");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->level, 4);
    parent_.Write("old/number.json", R"({"number": 99})");
    EXPECT_EQ(number_, 5U);
    fs::create_directory(parent_.Path("new"));
    parent_.Write("new/number.json", R"({"number": 10})");
    fs::rename(parent_.Path("new"), parent_.Path("data"));
    EXPECT_TRUE(Becomes(10));
    EXPECT_TRUE(Logged("is back"));
    Write(R"({"number": 11})");
    EXPECT_TRUE(Becomes(11)) << "the new folder is watched";
}

TEST_F(DataFolderTest, NoticesAFolderThatWasRemovedAndMadeAgain) {
    Write(R"({"number": 5})");
    Begin();
    fs::remove_all(parent_.Path("data"));
    ASSERT_TRUE(Logged("was moved or removed"));
    fs::create_directory(parent_.Path("data"));
    Write(R"({"number": 12})");
    EXPECT_TRUE(Becomes(12));
}

TEST_F(DataFolderTest, ServesTheLastOfManyQuickEdits) {
    Begin();
    for (int number = 1; number <= 50; ++number) {
        Write("{\"number\": " + std::to_string(number) + "}");
        loop_.restart();
        loop_.poll();
    }
    EXPECT_TRUE(Becomes(50));
}

TEST_F(DataFolderTest, ReadsLaterWhatMemoryWasWantingFor) {
    folder_.emplace(loop_, workers_, *files_);
    std::atomic<int> lacks = 2;
    folder_->Serve({.name = "number.json",
                    .lane = kReadLane,
                    .read = [this, &lacks](const std::optional<std::string>& text) {
                        if (lacks > 0) {
                            --lacks;
                            throw std::bad_alloc();
                        }
                        return [this, exists = text.has_value()] { number_ = exists ? 13 : 1; };
                    }});
    EXPECT_FALSE(number_) << "not even at the start";
    Write(R"({"number": 13})");
    EXPECT_TRUE(Becomes(13));
    EXPECT_EQ(lacks, 0);
    EXPECT_TRUE(
        Logged("number.json: out of memory: what was read last stays until it can be read "
               "again"));
}

}  // namespace
}  // namespace zam_service
