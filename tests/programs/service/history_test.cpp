#include "data/history.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <deque>
#include <filesystem>
#include <future>
#include <nlohmann/json.hpp>
#include <optional>

#include "data/history_line.h"
#include "lanes.h"
#include "result_codes.h"
#include "run_until.h"
#include "support/lines.h"
#include "support/temporary_folder.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_service {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using zam_service::testing::RunUntil;
using zam_test::Lines;
using zam_test::TemporaryFolder;

constexpr char kHistory[] = "uploads/history.jsonl";
constexpr char kOldHistory[] = "uploads/history.1.jsonl";

TEST(Rfc3339, WritesUtcWithMilliseconds) {
    const auto at = [](std::int64_t ms) {
        return Rfc3339(system_clock::time_point(milliseconds(ms)));
    };
    EXPECT_EQ(at(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(at(1), "1970-01-01T00:00:00.001Z");
    EXPECT_EQ(at(999), "1970-01-01T00:00:00.999Z");
    EXPECT_EQ(at(-1), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(at(1'709'210'096'789), "2024-02-29T12:34:56.789Z");
    EXPECT_EQ(at(4'102'444'799'999), "2099-12-31T23:59:59.999Z");
}

std::string EventLine(std::string_view text) {
    return HistoryLine("event", system_clock::time_point(milliseconds(5))).Add("text", text).Text();
}

TEST(HistoryLine, IsOneLineOfJsonWithTimeAndKindInFront) {
    HistoryLine line("start", system_clock::time_point(milliseconds(5)));
    line.Add("server_address", "a.example").Add("server_port", 443);
    EXPECT_EQ(line.Text(),
              "{\"time\":\"1970-01-01T00:00:00.005Z\",\"kind\":\"start\","
              "\"server_address\":\"a.example\",\"server_port\":443}\n");
}

TEST(HistoryLine, EscapesWhatWouldBreakItAndReadsBackTheSame) {
    for (const std::string& text :
         {std::string("plain"), std::string("\"quoted\" \\ and / slash"),
          std::string("line\nbreak\r\ttab\b\f"), std::string("nul\0inside", 10),
          std::string("\x01\x1F\x7F"), std::string("ä€😀"), std::string("\u2028\u2029"),
          std::string("{\"kind\":\"start\"}")}) {
        const std::string line = EventLine(text);
        EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
        const auto tree = nlohmann::json::parse(line);
        EXPECT_EQ(tree.at("text").get<std::string>(), text);
        EXPECT_EQ(tree.size(), 3U);
    }
}

TEST(HistoryLine, WritesBytesThatAreNoUtf8InBase64) {
    const auto tree = nlohmann::json::parse(EventLine("a\xFF"));
    EXPECT_FALSE(tree.contains("text"));
    EXPECT_EQ(tree.at("text_base64"), "Yf8=");
}

class HistoryFiles : public ::testing::Test {
protected:
    TemporaryFolder folder_;
    FolderFiles files_{folder_.Path()};
};

using HistoryFileTest = HistoryFiles;

TEST_F(HistoryFileTest, MakesFolderAndFileAndAppends) {
    HistoryFile file(files_);
    EXPECT_EQ(file.Append({"one\n", "two\n"}).written, 2U);
    EXPECT_EQ(file.Append({"three\n"}).error, "");
    EXPECT_EQ(folder_.Read(kHistory), "one\ntwo\nthree\n");
    EXPECT_FALSE(std::filesystem::exists(folder_.Path(kOldHistory)));
}

TEST_F(HistoryFileTest, RotatesWhenALineWouldExceedTheLimit) {
    for (const std::size_t limit : {9U, 10U, 11U}) {
        const TemporaryFolder folder;
        const FolderFiles files(folder.Path());
        HistoryFile file(files, limit);
        ASSERT_EQ(file.Append({"1234\n"}).written, 1U);
        ASSERT_EQ(file.Append({"5678\n"}).written, 1U);
        if (limit < 10) {
            EXPECT_EQ(folder.Read(kOldHistory), "1234\n");
            EXPECT_EQ(folder.Read(kHistory), "5678\n");
        } else {
            EXPECT_EQ(folder.Read(kHistory), "1234\n5678\n");
        }
    }
}

TEST_F(HistoryFileTest, RotatesWithinOneAppendAndKeepsOneOldFile) {
    HistoryFile file(files_, 6);
    EXPECT_EQ(file.Append({"a1\n", "a2\n", "b1\n", "b2\n", "c1\n"}).written, 5U);
    EXPECT_EQ(folder_.Read(kOldHistory), "b1\nb2\n");
    EXPECT_EQ(folder_.Read(kHistory), "c1\n");
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator(folder_.Path("uploads"))) {
        ++count;
    }
    EXPECT_EQ(count, 2U);
}

TEST_F(HistoryFileTest, WritesALineThatIsLargerThanTheLimit) {
    HistoryFile file(files_, 4);
    EXPECT_EQ(file.Append({"a\n", "123456789\n", "b\n"}).written, 3U);
    EXPECT_EQ(folder_.Read(kOldHistory), "123456789\n");
    EXPECT_EQ(folder_.Read(kHistory), "b\n");
}

TEST_F(HistoryFileTest, BeginsANewLineBehindATornOne) {
    std::filesystem::create_directory(folder_.Path("uploads"));
    folder_.Write(kHistory, "whole\n{\"torn");
    HistoryFile file(files_);
    EXPECT_EQ(file.Append({"next\n"}).written, 1U);
    EXPECT_EQ(folder_.Read(kHistory), "whole\n{\"torn\nnext\n");
}

TEST_F(HistoryFileTest, StartsAnewWhenTheFileWasRemoved) {
    HistoryFile file(files_);
    file.Append({"one\n"});
    std::filesystem::remove_all(folder_.Path("uploads"));
    EXPECT_EQ(file.Append({"two\n"}).written, 1U);
    EXPECT_EQ(folder_.Read(kHistory), "two\n");
}

TEST_F(HistoryFileTest, DoesNotFollowALinkOutOfTheFolder) {
    const TemporaryFolder outside;
    std::filesystem::create_directory(folder_.Path("uploads"));
    std::filesystem::create_symlink(outside.Path("stolen"), folder_.Path(kHistory));
    HistoryFile file(files_);
    const HistoryFile::Result result = file.Append({"one\n"});
    EXPECT_EQ(result.written, 0U);
    EXPECT_THAT(result.error, HasSubstr("history.jsonl': is a symbolic link"));
    EXPECT_FALSE(std::filesystem::exists(outside.Path("stolen")));
}

TEST_F(HistoryFileTest, DoesNotFollowALinkInPlaceOfTheUploadsFolder) {
    const TemporaryFolder outside;
    std::filesystem::create_directory_symlink(outside.Path(), folder_.Path("uploads"));
    HistoryFile file(files_);
    EXPECT_EQ(file.Append({"one\n"}).written, 0U);
    EXPECT_TRUE(std::filesystem::is_empty(outside.Path()));
}

TEST_F(HistoryFileTest, RefusesWhatIsNoRegularFile) {
    std::filesystem::create_directories(folder_.Path(kHistory));
    HistoryFile file(files_);
    const HistoryFile::Result result = file.Append({"one\n"});
    EXPECT_EQ(result.written, 0U);
    EXPECT_THAT(result.error, HasSubstr("history.jsonl'"));
}

/// Lets no file of this process grow beyond so many bytes.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &before_); }

private:
    rlimit before_{};
};

TEST_F(HistoryFileTest, LeavesNoHalfOfALineBehindAFailure) {
    HistoryFile file(files_);
    ASSERT_EQ(file.Append({"whole\n"}).written, 1U);
    {
        const FileSizeLimit limit(10);
        const HistoryFile::Result result = file.Append({"too large for it\n"});
        EXPECT_EQ(result.written, 0U);
        EXPECT_THAT(result.error, HasSubstr("File too large"));
    }
    EXPECT_EQ(folder_.Read(kHistory), "whole\n");
    EXPECT_EQ(file.Append({"next\n"}).written, 1U);
    EXPECT_EQ(folder_.Read(kHistory), "whole\nnext\n");
}

class HistoryTest : public HistoryFiles {
protected:
    asio::io_context loop_;
    std::optional<zam_platform::WorkerPool> workers_{std::in_place, 2, kLaneCount, 4};
    History history_{loop_, *workers_, files_};
};

TEST_F(HistoryTest, TellsWhenALineIsOnTheDisk) {
    std::optional<int> code;
    history_.Append("one\n", [&](int told) {
        code = told;
        EXPECT_EQ(folder_.Read(kHistory), "one\n");
    });
    EXPECT_FALSE(code);
    ASSERT_TRUE(RunUntil(loop_, [&] { return code.has_value(); }));
    EXPECT_EQ(*code, kNoError);
}

TEST_F(HistoryTest, KeepsTheOrderOfLines) {
    std::vector<int> codes;
    std::string expected;
    for (int line = 0; line < 100; ++line) {
        const std::string text = std::to_string(line) + "\n";
        expected += text;
        history_.Append(text, [&](int code) { codes.push_back(code); });
    }
    ASSERT_TRUE(RunUntil(loop_, [&] { return codes.size() == 100; }));
    EXPECT_EQ(codes, std::vector<int>(100, kNoError));
    EXPECT_EQ(folder_.Read(kHistory), expected);
}

TEST_F(HistoryTest, TellsManyLinesInSeveralHandlersAndInOrder) {
    static constexpr int kToTell = 200;
    std::promise<void> release;
    ASSERT_TRUE(workers_->Post(kHistoryLane, [&] { release.get_future().wait(); }));
    std::vector<int> told;
    for (int line = 0; line < kToTell; ++line) {
        history_.Append("x\n", [&told, line, this](int code) {
            EXPECT_EQ(code, kNoError);
            told.push_back(line);
            if (line == kToTell / 2) {
                history_.Append("behind\n", [&told](int) { told.push_back(kToTell); });
            }
        });
    }
    release.set_value();
    std::size_t most = 0;
    ASSERT_TRUE(RunUntil(loop_, [&, before = std::size_t{0}]() mutable {
        most = std::max(most, told.size() - std::exchange(before, told.size()));
        return told.size() > kToTell;
    }));
    EXPECT_EQ(most, kLinesToldAtOnce);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(Lines(folder_.Read(kHistory)).size(), told.size());
}

TEST_F(HistoryTest, TellsEveryLineAtOnceWhenItIsClosed) {
    std::promise<void> release;
    ASSERT_TRUE(workers_->Post(kHistoryLane, [&] { release.get_future().wait(); }));
    std::size_t told = 0;
    for (std::size_t line = 0; line < 3 * kLinesToldAtOnce; ++line) {
        history_.Append("x\n", [&told](int code) { told += code == kNoError ? 1U : 0U; });
    }
    release.set_value();
    workers_->Finish();
    history_.Close();
    ASSERT_TRUE(RunUntil(loop_, [&] { return told != 0; }));
    EXPECT_EQ(told, 3 * kLinesToldAtOnce);
}

TEST_F(HistoryTest, TellsAMediaErrorWhenTheDiskFails) {
    const zam_connector::testing::RecordingLogger logger;
    folder_.Write("uploads", "no folder");
    std::optional<int> code;
    history_.Append("one\n", [&](int told) { code = told; });
    ASSERT_TRUE(RunUntil(loop_, [&] { return code.has_value(); }));
    EXPECT_EQ(*code, kMediaError);
    ASSERT_EQ(logger.Records().size(), 1U);
    EXPECT_EQ(logger.Records()[0].level, 4);
    EXPECT_THAT(logger.Records()[0].text, HasSubstr("1 lines lost"));
}

TEST_F(HistoryTest, WritesWhileUsersTakeEveryJobThereIs) {
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    for (uid_t user = 1000; workers_->Post(kReadLane, user, [released] { released.wait(); });) {
        ++user;
    }
    std::optional<int> code;
    history_.Append("one\n", [&](int told) { code = told; });
    EXPECT_TRUE(RunUntil(loop_, [&] { return code.has_value(); }));
    EXPECT_EQ(code, kNoError);
    release.set_value();
}

TEST_F(HistoryTest, KeepsAPlaceForALineThatMustNotBeRefused) {
    const zam_connector::testing::RecordingLogger logger;
    constexpr uid_t kBusy = 1000;
    std::promise<void> release;
    ASSERT_TRUE(workers_->Post(kHistoryLane, [&] { release.get_future().wait(); }));
    history_.Append("first\n", nullptr);
    std::optional<History::Place> place = history_.Reserve(kBusy);
    ASSERT_TRUE(place);
    std::size_t refused = 0;
    for (std::size_t line = 0; line < kMaxUserWaitingLines; ++line) {
        history_.Append(
            "x\n", [&](int code) { refused += code == kInsufficientResources ? 1U : 0U; }, kBusy);
    }
    EXPECT_EQ(refused, 1U) << "the place counts";
    EXPECT_FALSE(history_.Reserve(kBusy));
    EXPECT_EQ(logger.Records().back().text,
              "no place for a line: 256 lines of user 1000 wait, at most 256 may");
    std::optional<int> code;
    history_.Append(
        "kept\n", [&](int told) { code = told; }, *std::move(place));
    release.set_value();
    ASSERT_TRUE(RunUntil(loop_, [&] { return code.has_value(); }));
    EXPECT_EQ(code, kNoError);
    EXPECT_EQ(Lines(folder_.Read(kHistory)).size(), kMaxUserWaitingLines + 1);
}

TEST_F(HistoryTest, BoundsThePlacesOfAllUsersTogether) {
    const zam_connector::testing::RecordingLogger logger;
    std::deque<History::Place> places;
    const auto reserve = [&](std::size_t number) {
        std::optional<History::Place> place =
            history_.Reserve(static_cast<uid_t>(number / kMaxUserWaitingLines));
        if (place) {
            places.push_back(*std::move(place));
        }
    };
    for (std::size_t number = 0; number <= kMaxWaitingLines; ++number) {
        reserve(number);
    }
    EXPECT_EQ(places.size(), kMaxWaitingLines);
    EXPECT_EQ(logger.Records().back().text,
              "no place for a line: 1024 lines wait, at most 1024 may");
    places.pop_front();
    reserve(kMaxWaitingLines);
    EXPECT_EQ(places.size(), kMaxWaitingLines);
}

TEST_F(HistoryTest, GivesBackPlacesThatNoLineCameFor) {
    constexpr uid_t kUser = 1000;
    for (std::size_t place = 0; place < 2 * kMaxWaitingLines; ++place) {
        ASSERT_TRUE(history_.Reserve(kUser)) << place;
    }
}

TEST_F(HistoryTest, BoundsTheLinesThatWait) {
    const zam_connector::testing::RecordingLogger logger;
    std::promise<void> release;
    ASSERT_TRUE(workers_->Post(kHistoryLane, [&] { release.get_future().wait(); }));
    std::size_t done = 0;
    std::size_t refused = 0;
    // One goes to the worker at once; the others wait for it.
    for (std::size_t line = 0; line < kMaxWaitingLines + 2; ++line) {
        history_.Append("x\n", [&](int code) {
            done += code == kNoError ? 1U : 0U;
            refused += code == kInsufficientResources ? 1U : 0U;
        });
    }
    EXPECT_EQ(refused, 1U);
    release.set_value();
    ASSERT_TRUE(RunUntil(loop_, [&] { return done == kMaxWaitingLines + 1; }));
    EXPECT_EQ(Lines(folder_.Read(kHistory)).size(), kMaxWaitingLines + 1);
}

TEST_F(HistoryTest, BoundsTheLinesOfAUserAndLeavesTheOthersTheirPlaces) {
    const zam_connector::testing::RecordingLogger logger;
    constexpr uid_t kBusy = 1000;
    constexpr uid_t kOther = 1001;
    std::promise<void> release;
    ASSERT_TRUE(workers_->Post(kHistoryLane, [&] { release.get_future().wait(); }));
    std::size_t done = 0;
    std::size_t refused = 0;
    const auto append = [&](std::optional<uid_t> user) {
        history_.Append(
            "x\n",
            [&](int code) {
                done += code == kNoError ? 1U : 0U;
                refused += code == kInsufficientResources ? 1U : 0U;
            },
            user);
    };
    append({});  // this one goes to the worker; the others wait for it
    for (std::size_t line = 0; line < kMaxUserWaitingLines + 5; ++line) {
        append(kBusy);
    }
    EXPECT_EQ(refused, 5U);
    EXPECT_EQ(logger.Records().back().text,
              "line dropped: 256 lines of user 1000 wait, at most 256 may");
    for (int line = 0; line < 5; ++line) {
        append(kOther);
        append({});
    }
    EXPECT_EQ(refused, 5U);
    release.set_value();
    ASSERT_TRUE(RunUntil(loop_, [&] { return done == kMaxUserWaitingLines + 11; }));
    append(kBusy);
    ASSERT_TRUE(RunUntil(loop_, [&] { return done == kMaxUserWaitingLines + 12; }));
}

TEST_F(HistoryTest, WritesWhatWaitsWhenItIsClosed) {
    const zam_connector::testing::RecordingLogger logger;
    std::vector<int> codes;
    const auto append = [&](const char* line) {
        history_.Append(line, [&](int code) { codes.push_back(code); });
    };
    append("one\n");
    append("two\n");
    workers_->Finish();
    history_.Close();
    loop_.poll();
    EXPECT_THAT(codes, ElementsAre(kNoError, kNoError));
    EXPECT_EQ(folder_.Read(kHistory), "one\ntwo\n");
    append("three\n");
    EXPECT_EQ(codes.back(), kInsufficientResources);
}

}  // namespace
}  // namespace zam_service
