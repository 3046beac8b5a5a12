#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "common/log.h"
#include "qel/exception.h"
#include "support/allocations.h"

/// Log records when there is no memory.

namespace zam_connector {
namespace {

/// No allocation succeeds while it lives.
class WithoutMemory {
public:
    WithoutMemory() {
        zam_test::g_keepFailing = true;
        zam_test::g_allocationsLeft = 0;
    }
    WithoutMemory(const WithoutMemory&) = delete;
    WithoutMemory& operator=(const WithoutMemory&) = delete;
    ~WithoutMemory() {
        zam_test::g_allocationsLeft = -1;
        zam_test::g_keepFailing = false;
    }
};

/// Keeps the last text in room of its own.
class LastTextLogger final : public zor::logger::ZORLogger {
public:
    LastTextLogger() { InstallRootLogger(this); }
    ~LastTextLogger() override { InstallRootLogger(nullptr); }

    bool IsEnabled(int /*level*/) const override { return true; }
    void LogImpl(int /*level*/, const char* /*file*/, int /*line*/, const char* /*function*/,
                 std::string_view text) override {
        length_ = text.copy(text_, sizeof text_);
    }
    std::string Text() const { return {text_, length_}; }

private:
    char text_[20000] = {};
    std::size_t length_ = 0;
};

constexpr common::LogSite kLogSite{"file", 1, "Function"};

TEST(LogWithoutMemory, WritesOfALongTextWhatFitsItsBuffer) {
    const LastTextLogger logger;
    const std::string longText(10000, 'x');
    {
        const WithoutMemory none;
        common::Log(4, kLogSite, "{} of {}", 12, longText);
    }
    EXPECT_THAT(logger.Text(), ::testing::MatchesRegex("12 of x+"));
    EXPECT_EQ(logger.Text().size(), fmt::memory_buffer().capacity());
    common::Log(4, kLogSite, "{} of {}", 12, longText);
    EXPECT_EQ(logger.Text(), "12 of " + longText);
}

template <typename Raise>
std::string CaughtText(const LastTextLogger& logger, Raise raise) {
    try {
        raise();
    } catch (...) {
        const WithoutMemory none;
        common::CaughtFailure(kLogSite, "caught {}");
    }
    const std::string one = logger.Text();
    try {
        raise();
    } catch (...) {
        const WithoutMemory none;
        common::CaughtCodeFailure(kLogSite, "caught {} {}");
    }
    return one + " / " + logger.Text();
}

TEST(LogWithoutMemory, TellsOfAnExceptionWhatItKnows) {
    const LastTextLogger logger;
    const std::string longText(1000, 'w');
    EXPECT_EQ(
        CaughtText(logger, [] { throw qel::CheckFailedException("proxy_init", 25) << "long"; }),
        "caught CheckFailedException. At proxy_init(25) / "
        "caught -2147483573 CheckFailedException. At proxy_init(25)");
    EXPECT_EQ(CaughtText(logger, [] { throw std::out_of_range("a range that is quite long"); }),
              "caught a range that is quite long / caught -2147483554 a range that is quite long");
    EXPECT_EQ(CaughtText(logger, [] { throw std::bad_alloc(); }),
              "caught std::exception: std::bad_alloc / "
              "caught -2147483573 std::exception: std::bad_alloc");
    EXPECT_THAT(CaughtText(logger, [&] { throw std::runtime_error(longText); }),
                ::testing::StartsWith("caught std::exception: www"));
}

/// stderr as a file of the test's own.
std::string DefaultLoggersLines(void (*log)()) {
    char name[] = "/tmp/zam_log_XXXXXX";
    const int file = ::mkstemp(name);
    ::unlink(name);
    const int before = ::dup(STDERR_FILENO);
    ::dup2(file, STDERR_FILENO);
    log();
    ::dup2(before, STDERR_FILENO);
    ::close(before);
    std::string lines(40000, '\0');
    const ssize_t got = ::pread(file, lines.data(), lines.size(), 0);
    ::close(file);
    lines.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return lines;
}

TEST(LogWithoutMemory, GoesThroughTheDefaultLoggerFromTheFirstRecordOn) {
    const std::string lines = DefaultLoggersLines([] {
        const WithoutMemory none;
        const std::string_view escaped = "a\nb";
        common::Log(4, kLogSite, "{} {}", 1, escaped);
        common::Log(4, kLogSite, "{} {}", 2, escaped);
    });
    EXPECT_THAT(lines, ::testing::MatchesRegex("[^\n]* E .file:1 Function. 1 a.x0ab\n"
                                               "[^\n]* E .file:1 Function. 2 a.x0ab\n"));
}

TEST(LogWithoutMemory, IsNeededByTheDefaultLoggerForNewTextsOnly) {
    static int s_forNew = 0;
    static int s_forKnown = 0;
    DefaultLoggersLines([] {
        const std::string_view text = "a text that is remembered in memory of its own";
        int before = zam_test::g_allocations;
        common::Log(4, kLogSite, "{}", text);
        s_forNew = zam_test::g_allocations - before;
        before = zam_test::g_allocations;
        common::Log(4, kLogSite, "{}", text);
        s_forKnown = zam_test::g_allocations - before;
    });
    EXPECT_LE(s_forNew, 1);
    EXPECT_EQ(s_forKnown, 0);
}

}  // namespace
}  // namespace zam_connector
