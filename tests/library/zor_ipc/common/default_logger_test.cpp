#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "common/log.h"
#include "zam_connector_testing/recording_logger.h"
#include "zor/logger.h"

namespace {

using zam_connector::testing::RecordingLogger;
using zor::logger::DefaultLoggerImpl;
using zor::logger::ZORLogger;

TEST(DefaultLogger, EnablesLevelsFromItsThresholdUpwards) {
    for (int threshold = -1; threshold <= 7; ++threshold) {
        const DefaultLoggerImpl logger(threshold);
        EXPECT_EQ(logger.Threshold(), threshold);
        EXPECT_FALSE(logger.IsEnabled(threshold - 1)) << threshold;
        EXPECT_TRUE(logger.IsEnabled(threshold)) << threshold;
        EXPECT_TRUE(logger.IsEnabled(threshold + 1)) << threshold;
    }
}

TEST(DefaultLogger, TakesANewThreshold) {
    DefaultLoggerImpl logger(2);
    logger.SetThreshold(4);
    EXPECT_FALSE(logger.IsEnabled(3));
    EXPECT_TRUE(logger.IsEnabled(4));
    EXPECT_EQ(logger.Threshold(), 4);
}

TEST(RootLogger, IsTheDefaultOneUntilAnotherIsInstalled) {
    EXPECT_EQ(&ZORLogger::RootLogger(), &DefaultLoggerImpl::Instance());
    DefaultLoggerImpl mine(0);
    EXPECT_EQ(ZORLogger::InstallRootLogger(&mine), nullptr);
    EXPECT_EQ(&ZORLogger::RootLogger(), &mine);
    DefaultLoggerImpl other(0);
    EXPECT_EQ(ZORLogger::InstallRootLogger(&other), &mine);
    EXPECT_EQ(&ZORLogger::RootLogger(), &other);
    EXPECT_EQ(ZORLogger::InstallRootLogger(nullptr), &other);
    EXPECT_EQ(&ZORLogger::RootLogger(), &DefaultLoggerImpl::Instance());
}

/// The default logger reads its environment once in a process and writes to stderr, so what it
/// does there is seen from outside: each statement runs in a process of its own.
class DefaultLoggerProcessDeathTest : public ::testing::Test {
protected:
    DefaultLoggerProcessDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

[[noreturn]] void ReportThreshold(const char* level) {
    if (level == nullptr) {
        unsetenv("ZAM_LOG_LEVEL");
    } else {
        setenv("ZAM_LOG_LEVEL", level, 1);
    }
    std::fprintf(stderr, "threshold <%d>\n", DefaultLoggerImpl::Instance().Threshold());
    std::exit(0);
}

TEST_F(DefaultLoggerProcessDeathTest, TakesItsThresholdFromTheEnvironment) {
    struct {
        const char* variable;
        int threshold;
    } const rows[] = {
        {nullptr, 4}, {"4", 4},   {"0", 0},   {"3", 3},  {"5", 5},           {"-1", -1},
        {"007", 7},   {"", 4},    {"x", 4},   {"3x", 4}, {"3 ", 4},          {" 3", 4},
        {"+3", 4},    {"0x3", 4}, {"2.5", 4}, {"-", 4},  {"99999999999", 4}, {"error", 4},
    };
    for (const auto& row : rows) {
        EXPECT_EXIT(ReportThreshold(row.variable), ::testing::ExitedWithCode(0),
                    "threshold <" + std::to_string(row.threshold) + ">")
            << (row.variable == nullptr ? "unset" : row.variable);
    }
}

[[noreturn]] void WriteOneRecord(int level, const char* text) {
    DefaultLoggerImpl logger(0);
    logger.LogImpl(level, "proxy_init", 25, "Connect", text);
    std::exit(0);
}

TEST_F(DefaultLoggerProcessDeathTest, WritesOneLineWithLevelFileLineFunctionAndText) {
    struct {
        int level;
        const char* letter;
    } const rows[] = {{0, "T"}, {1, "D"}, {2, "I"}, {3, "W"}, {4, "E"}, {-3, "T"}, {99, "C"}};
    for (const auto& row : rows) {
        const std::string line = std::string("^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:") +
                                 "[0-9]{2}[.][0-9]{3} [0-9]+ " + row.letter +
                                 " \\[proxy_init:25 Connect\\] a \\{\\} text\n$";
        EXPECT_EXIT(WriteOneRecord(row.level, "a {} text"), ::testing::ExitedWithCode(0), line);
    }
}

TEST_F(DefaultLoggerProcessDeathTest, EscapesControlCharacters) {
    EXPECT_EXIT(WriteOneRecord(4, "a\nb\tc\x1B[2J\x7F \xC3\xA9"), ::testing::ExitedWithCode(0),
                "\\] a\\\\x0ab\\\\x09c\\\\x1b\\[2J\\\\x7f \xC3\xA9\n$");
}

TEST_F(DefaultLoggerProcessDeathTest, CutsTextsAtTheirLimit) {
    const std::string limit(zor::logger::kMaxLogTextBytes, 'x');
    EXPECT_EXIT(WriteOneRecord(4, limit.c_str()), ::testing::ExitedWithCode(0), "\\] x+\n$");
    EXPECT_EXIT(WriteOneRecord(4, (limit + "yz").c_str()), ::testing::ExitedWithCode(0),
                "\\] x+[.][.][.] \\(2 bytes more\\)\n$");
}

constexpr int kThreads = 4;
constexpr int kRecords = 100;
constexpr int kFirstLine = 1000;  ///< as many digits as every other

[[noreturn]] void LogOnManyThreads() {
    std::atomic<int> nextLine{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&nextLine] {
            for (int record = 0; record < kRecords; ++record) {
                // Equal lines would be one.
                DefaultLoggerImpl::Instance().LogImpl(4, "file", kFirstLine + nextLine++,
                                                      "Function", "the whole text");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::exit(0);
}

/// As many lines as records, and each of them a whole one.
bool AreWholeLines(const std::string& output) {
    constexpr std::string_view kEnd = " Function] the whole text";
    std::istringstream lines(output);
    std::string line;
    std::size_t length = 0;
    int count = 0;
    for (; std::getline(lines, line); ++count) {
        length = count == 0 ? line.size() : length;
        if (line.size() != length || !line.ends_with(kEnd)) {
            return false;
        }
    }
    return count == kThreads * kRecords && output.ends_with('\n');
}

TEST_F(DefaultLoggerProcessDeathTest, KeepsTheLinesOfManyThreadsApart) {
    EXPECT_EXIT(LogOnManyThreads(), ::testing::ExitedWithCode(0), ::testing::Truly(&AreWholeLines));
}

[[noreturn]] void LogThroughTheRootLogger() {
    unsetenv("ZAM_LOG_LEVEL");
    constexpr zam_connector::common::LogSite kSite{"site", 3, "Method"};
    zam_connector::common::Log(3, kSite, "hidden");
    zam_connector::common::Log(4, kSite, "shown {}", 4);
    std::exit(0);
}

TEST_F(DefaultLoggerProcessDeathTest, GetsTheRecordsOfAProcessThatInstallsNoLogger) {
    EXPECT_EXIT(LogThroughTheRootLogger(), ::testing::ExitedWithCode(0),
                "^[^\n]* E \\[site:3 Method\\] shown 4\n$");
}

[[noreturn]] void LogToAFullDevice() {
    const int before = ::dup(STDERR_FILENO);
    if (::dup2(::open("/dev/full", O_WRONLY), STDERR_FILENO) != STDERR_FILENO) {
        std::exit(1);
    }
    zam_connector::common::Log(4, {"site", 3, "Method"}, "this has nowhere to go");
    ::dup2(before, STDERR_FILENO);
    zam_connector::common::Log(4, {"site", 3, "Method"}, "this has");
    std::exit(0);
}

TEST_F(DefaultLoggerProcessDeathTest, DropsALineThatCannotBeWrittenAndTellsItWithTheNext) {
    EXPECT_EXIT(LogToAFullDevice(), ::testing::ExitedWithCode(0),
                "^[^\n]* W [^\n]* left out: 1 that could not be written\n"
                "[^\n]* E \\[site:3 Method\\] this has\n$");
}

[[noreturn]] void LogWithoutStderr() {
    ::close(STDERR_FILENO);
    zam_connector::common::Log(4, {"site", 3, "Method"}, "this has nowhere to go");
    std::exit(0);
}

[[noreturn]] void LogToNobody() {
    int ends[2];
    if (::pipe(ends) != 0 || ::dup2(ends[1], STDERR_FILENO) != STDERR_FILENO) {
        std::exit(1);
    }
    ::close(ends[0]);
    zam_connector::common::Log(4, {"site", 3, "Method"}, "nobody reads this");
    std::exit(0);
}

TEST_F(DefaultLoggerProcessDeathTest, GoesOnWhenNothingTakesItsLines) {
    EXPECT_EXIT(LogWithoutStderr(), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(LogToNobody(), ::testing::ExitedWithCode(0), "");
}

void LogAgainAndAgain() {
    for (int time = 0; time < 100; ++time) {
        zam_connector::common::Log(4, {"site", 3, "Method"}, "again");
    }
}

[[noreturn]] void RepeatUntilTheEnd() {
    LogAgainAndAgain();
    std::exit(0);
}

TEST_F(DefaultLoggerProcessDeathTest, TellsAtTheEndWhatItHasNotWrittenAgain) {
    EXPECT_EXIT(RepeatUntilTheEnd(), ::testing::ExitedWithCode(0),
                "^[^\n]* E \\[site:3 Method\\] again\n([^\n]*\n)*"
                "[^\n]* W [^\n]* left out: [0-9]+ repeated\n");
}

[[noreturn]] void RepeatAndFork() {
    LogAgainAndAgain();
    const pid_t child = ::fork();
    if (child == 0) {
        ::exit(0);
    }
    ::waitpid(child, nullptr, 0);
    std::exit(0);
}

/// What was left out, and nothing else than what one process has to say.
bool IsToldByOneProcess(const std::string& output) {
    std::istringstream lines(output);
    std::set<std::string> processes;
    std::string time;
    std::string process;
    for (std::string rest; lines >> time >> process && std::getline(lines, rest);) {
        processes.insert(process);
    }
    return processes.size() == 1 && output.find("left out: ") != std::string::npos;
}

TEST_F(DefaultLoggerProcessDeathTest, LeavesItToTheParentOfAForkToTellWhatWasBefore) {
    EXPECT_EXIT(RepeatAndFork(), ::testing::ExitedWithCode(0),
                ::testing::Truly(&IsToldByOneProcess));
}

constexpr int kChildren = 50;
constexpr unsigned kChildSeconds = 20;

/// Ends with status 0 when every child, forked while another thread logs, can log as well.
[[noreturn]] void LogInForkedChildren() {
    ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
    constexpr zam_connector::common::LogSite kSite{"site", 3, "Method"};
    std::atomic<bool> isDone{false};
    std::thread logging([&] {
        while (!isDone) {
            zam_connector::common::Log(4, kSite, "parent");
        }
    });
    int failed = 0;
    for (int number = 0; number < kChildren; ++number) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(kChildSeconds);
            zam_connector::common::Log(4, kSite, "child");
            ::_exit(0);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        failed += status == 0 ? 0 : 1;
    }
    isDone = true;
    logging.join();
    std::exit(failed == 0 ? 0 : 1);
}

TEST_F(DefaultLoggerProcessDeathTest, LogsInAChildForkedWhileAnotherThreadLogs) {
    EXPECT_EXIT(LogInForkedChildren(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
