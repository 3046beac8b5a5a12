#include <sys/stat.h>

#include <filesystem>

#include "command_fixture.h"
#include "download/progress.h"
#include "support/temporary_folder.h"
#include "times.h"
#include "zam_connector/result_code.h"

namespace zamctl::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using zam_test::Content;
using namespace std::chrono_literals;

class FileCommandTest : public CommandTest {
protected:
    FileCommandTest() {
        provider_.fileDownloader.content = "0123456789";
        provider_.fileDownloader.modificationTime = 1769862896;
    }

    zam_test::TemporaryFolder folder_;
    std::string file_ = folder_.Path("out");
};

TEST_F(FileCommandTest, InfoPrintsTheDescription) {
    const std::string sha256 = Sha256Of("0123456789");
    EXPECT_EQ(Run({"file", "info", "a/b"}).out,
              "size               10 bytes\nsha256             " + sha256 +
                  "\nmodification_time  2026-01-31T12:34:56Z\nchunk_size         4 bytes\n");
    EXPECT_EQ(Run({"--json", "file", "info", "a/b"}).out,
              R"({"path":"a/b","size_bytes":10,"sha256":")" + sha256 +
                  R"(","modification_time":"2026-01-31T12:34:56Z","chunk_size_bytes":4,"result":0})"
                  "\n");
    provider_.fileDownloader.modificationTime = 0;
    EXPECT_TRUE(Run({"--json", "file", "info", "x"}).Document().at("modification_time").is_null());
    provider_.fileDownloader.infoCode = static_cast<int>(0x8000004CU);
    const Ran ran = Run({"file", "info", "x"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("cannot describe the file: the service answered 0x8000004C"));
}

TEST_F(FileCommandTest, GetWritesTheFileAndReports) {
    const std::string sha256 = Sha256Of("0123456789");
    const Ran ran = Run({"file", "get", "a/b", "-o", file_});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "10 bytes written to \"" + file_ + "\"\nsha256 " + sha256 + "\n");
    EXPECT_EQ(Content(file_), "0123456789");
    EXPECT_EQ(provider_.fileDownloader.described, std::vector<std::string>{"a/b"});
    const Ran json = Run({"--json", "--quiet", "file", "get", "a/b", "-o", file_});
    EXPECT_EQ(json.out, R"({"file":")" + file_ + R"(","size_bytes":10,"sha256":")" + sha256 +
                            R"(","resumed_bytes":0,"fetched_bytes":10,"interruptions":0,)"
                            R"("damaged_chunks":0,"restarts":0,"result":0})"
                            "\n");
    EXPECT_EQ(json.err, "");
    EXPECT_EQ(Run({"--quiet", "file", "get", "a/b", "-o", file_}).out, "");
}

TEST_F(FileCommandTest, GetNamesTheFileAfterTheLastPart) {
    const fs::path before = fs::current_path();
    fs::current_path(folder_.Path());
    EXPECT_EQ(Run({"--quiet", "file", "get", "a/b.txt"}).status, 0);
    fs::current_path(before);
    EXPECT_EQ(folder_.Read("b.txt"), "0123456789");
    for (const std::string name : {"a/", "..", ""}) {
        const Ran ran = Run({"file", "get", name});
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err, HasSubstr("ends in no name for a file"));
    }
}

TEST_F(FileCommandTest, GetRefusesWhatIsNoRegularFile) {
    ExpectFailure(Run({"file", "get", "x", "-o", folder_.Path()}), 1);
    ExpectFailure(Run({"file", "get", "x", "-o", "-"}), 1);
    ExpectFailure(Run({"file", "get", "x", "-o", file_, "--timeout", "forever"}), 1);
    EXPECT_EQ(provider_.opens, 0);
}

TEST_F(FileCommandTest, GetQuotesTheCauseOfAnInterruptionAndEndsInTime) {
    provider_.fileDownloader.onChunk = [this](std::size_t /*call*/) {
        EXPECT_THAT(clock_.runMessage, HasSubstr("neither the service nor the disk"));
        LogError("the service closed the connection");
        return zam_connector::kUnspecifiedError;
    };
    const Ran ran = Run({"file", "get", "x", "-o", file_, "--timeout", "2.5"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, HasSubstr("\"x\" has not come whole within 2.500 s\n"));
    EXPECT_THAT(ran.err, HasSubstr("interrupted, trying again: the service closed"));
    EXPECT_EQ(clock_.runEnd, Clock::TimePoint(3500ms));
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(FileCommandTest, GetCountsItsTimeFromMakingTheConnectorOn) {
    provider_.onOpen = [this] { clock_.Advance(5s); };
    provider_.fileDownloader.infoCode = zam_connector::kUnspecifiedError;
    const Ran ran = Run({"file", "get", "x", "-o", file_, "--timeout", "6"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_THAT(ran.err, HasSubstr("\"x\" has not come whole within 6.000 s\n"));
    EXPECT_GE(clock_.Now(), Clock::TimePoint(6s));
    EXPECT_LE(clock_.Now(), Clock::TimePoint(6500ms));
    EXPECT_EQ(clock_.runEnd, Clock::TimePoint(7s));
}

TEST_F(FileCommandTest, GetGoesOnAskingForAllItsTimeThoughNothingComes) {
    provider_.fileDownloader.infoCode = zam_connector::kUnspecifiedError;
    const Ran ran = Run({"file", "get", "x", "-o", file_, "--timeout", "60"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_THAT(ran.err, HasSubstr("\"x\" has not come whole within 60.0 s\n"));
    EXPECT_GE(clock_.Now(), Clock::TimePoint(60s));
}

TEST_F(FileCommandTest, GetPrintsALineForEachTenthWhereThereIsNoTerminal) {
    provider_.fileDownloader.chunkSizeBytes = 1;
    provider_.fileDownloader.onChunk = [this](std::size_t /*call*/) {
        clock_.Advance(1s);
        return 0;
    };
    const Ran ran = Run({"file", "get", "x", "-o", file_});
    EXPECT_THAT(ran.err, AllOf(StartsWith(" 10 %  1 bytes of 10 bytes  1 bytes/s\n 20 %"),
                               HasSubstr("100 %  10 bytes of 10 bytes"), Not(HasSubstr("\r"))));
}

TEST_F(FileCommandTest, GetDrawsABarOnATerminal) {
    system_.errIsTerminal = true;
    const Ran ran = Run({"file", "get", "x", "-o", file_});
    EXPECT_THAT(ran.err, AllOf(HasSubstr("\r\x1b[K[==============================] 100 %"),
                               ::testing::EndsWith("\n")));
    EXPECT_EQ(Run({"--quiet", "file", "get", "x", "-o", file_}).err, "");
}

TEST(Progress, DoesNotDrawABarMoreOftenThanAnybodyCanSee) {
    FakeClock clock;
    std::ostringstream err;
    {
        Progress progress(err, clock, Progress::Style::Bar);
        for (std::uint64_t bytes = 0; bytes < 1000; ++bytes) {
            clock.Advance(1ms);
            progress.Show(bytes, 1000);
        }
        progress.Note("a note");
        progress.Show(1000, 1000);
    }
    const std::string text = err.str();
    EXPECT_LE(std::count(text.begin(), text.end(), '['), 2 * 13);
    EXPECT_THAT(text, HasSubstr("\r\x1b[Ka note\n"));
    EXPECT_THAT(text, ::testing::EndsWith("1000 bytes of 1000 bytes  1001 bytes/s\n"));
}

TEST(Progress, ShowsBytesInTheirUnits) {
    EXPECT_EQ(BytesText(1023), "1023 bytes");
    EXPECT_EQ(BytesText(1536), "1.5 KiB");
    EXPECT_EQ(BytesText(1ULL << 30U), "1.0 GiB");
    EXPECT_EQ(BytesText(~0ULL), "16.0 EiB");
}

TEST(Times, ReadAndWriteEachOther) {
    for (const auto& [text, seconds] : std::vector<std::pair<std::string, std::int64_t>>{
             {"2026-01-31T12:34:56Z", 1769862896},
             {"1970-01-01T00:00:00Z", 0},
             {"9999-12-31T23:59:59Z", 253402300799}}) {
        EXPECT_EQ(ParseUtcSeconds("--t", text), seconds);
        EXPECT_EQ(UtcSecondsText(seconds), text);
    }
    EXPECT_EQ(ParseUtcSeconds("--t", "2026-01-31"), 1769817600);
    EXPECT_EQ(ParseUtcSeconds("--t", "-5"), -5);
    EXPECT_EQ(UtcSecondsText(253402300800), "253402300800");
    EXPECT_EQ(UtcText(WallTime(5ms)), "1970-01-01T00:00:00.005Z");
    for (const std::string wrong : {"", "tomorrow", "2026-02-30", "2026-01-31T12:00:00", "12x",
                                    "2026-13-01", "2026-01-31T12:00:00Zx"}) {
        EXPECT_THROW(ParseUtcSeconds("--t", wrong), UsageError) << wrong;
    }
    EXPECT_EQ(DurationText(250ms), "0.250 s");
    EXPECT_EQ(DurationText(75s), "75.0 s");
    EXPECT_EQ(DurationText(125s), "2 min 5 s");
    EXPECT_EQ(DurationText(3h + 4min), "3 h 4 min");
}

}  // namespace
}  // namespace zamctl::test
