#include "zam_platform/server/service_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include "server/user_shares.h"
#include "support/lines.h"
#include "support/temporary_folder.h"
#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_platform/report.h"

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr steady_clock::time_point kShareStart{};

/// Lines that a user gets at a time, of many more.
int LinesOf(UserShares& shares, uid_t user, milliseconds time) {
    constexpr int kTries = 1000;
    const LogsForUser logsForUser(user);
    int taken = 0;
    for (int number = 0; number < kTries; ++number) {
        taken += shares.Take(kShareStart + time) ? 1 : 0;
    }
    return taken;
}

TEST(UserShares, GiveEachUserABurstAndThenOneLineASecond) {
    UserShares shares;
    EXPECT_EQ(LinesOf(shares, 1000, milliseconds{0}), UserShares::kMostLines);
    EXPECT_EQ(LinesOf(shares, 1000, milliseconds{999}), 0);
    EXPECT_EQ(LinesOf(shares, 1000, milliseconds{1000}), 1);
    EXPECT_EQ(LinesOf(shares, 1000, milliseconds{3500}), 2);
    EXPECT_EQ(LinesOf(shares, 1000, milliseconds{4000}), 1);
    EXPECT_EQ(LinesOf(shares, 1001, milliseconds{4000}), UserShares::kMostLines);
    EXPECT_EQ(LinesOf(shares, kStrangers, milliseconds{4000}), UserShares::kMostLines);
    EXPECT_EQ(LinesOf(shares, 1000, milliseconds{1'000'000}), UserShares::kMostLines);
}

TEST(UserShares, LimitNothingThatIsNobodys) {
    UserShares shares;
    for (int number = 0; number < 1000; ++number) {
        EXPECT_TRUE(shares.Take(kShareStart));
    }
}

TEST(UserShares, ForgetWhoWroteLongestAgo) {
    UserShares shares;
    for (uid_t user = 0; user <= UserShares::kMaxUsers; ++user) {
        EXPECT_EQ(LinesOf(shares, user, milliseconds(user)), UserShares::kMostLines);
    }
    EXPECT_EQ(LinesOf(shares, 1, milliseconds{100}), 0);
    EXPECT_EQ(LinesOf(shares, 0, milliseconds{100}), UserShares::kMostLines);
}

/// A server and its log, with stderr in a file.
class ServiceLogTest : public ::testing::Test {
protected:
    ServiceLogTest() {
        const UniqueFd file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        ::dup2(file.Get(), STDERR_FILENO);
        log_.emplace(server_.Get().Context());
    }
    ~ServiceLogTest() override {
        EndLog();
        ::dup2(before_.Get(), STDERR_FILENO);
    }

    void EndLog() {
        server_.Stop();
        log_.reset();
    }

    std::vector<std::string> LogLines() const { return zam_test::Lines(zam_test::Content(path_)); }

    const zam_test::TemporaryFolder folder_;
    const std::string path_ = folder_.Path("log");
    const UniqueFd before_{::dup(STDERR_FILENO)};
    TestServer server_;
    std::optional<ServiceLog> log_;
};

TEST_F(ServiceLogTest, WritesAsTheDefaultLoggerDoes) {
    Report(4, "file", "Function", "a text\n", 7);
    Report(3, "file", "Function", "below the threshold", 7);
    EXPECT_THAT(LogLines(), ElementsAre(EndsWith(" E [file:7 Function] a text\\x0a")));
}

TEST_F(ServiceLogTest, TellsWhatItLeftOutByATimer) {
    Report(4, "file", "Function", "again", 7);
    Report(4, "file", "Function", "again", 7);
    EXPECT_TRUE(zam_test::Eventually([this] { return LogLines().size() == 2; }));
    EXPECT_THAT(LogLines().back(), EndsWith("left out: 1 repeated"));
    for (int number = 0; number < 3; ++number) {
        Report(4, "file", "Function", "and again", 7);
    }
    EXPECT_TRUE(zam_test::Eventually([this] { return LogLines().size() == 4; }));
    EXPECT_THAT(LogLines().back(), EndsWith("left out: 2 repeated"));
}

TEST_F(ServiceLogTest, TellsWhatItLeftOutAtItsEnd) {
    Report(4, "file", "Function", "again", 7);
    Report(4, "file", "Function", "again", 7);
    EndLog();
    EXPECT_THAT(LogLines().back(), EndsWith("left out: 1 repeated"));
    EXPECT_EQ(&zor::logger::ZORLogger::RootLogger(), &zor::logger::DefaultLoggerImpl::Instance());
}

TEST(LogsForUser, GivesTheThreadBackToWhomItSawToBefore) {
    const LogsForUser outer(1);
    {
        const LogsForUser inner(2);
        EXPECT_EQ(LogContext::Here().user, uid_t{2});
    }
    EXPECT_EQ(LogContext::Here().user, uid_t{1});
}

TEST_F(ServiceLogTest, KnowsTheThreadThatMustNotWait) {
    EXPECT_TRUE(server_.OnLoop([] { return LogContext::Here().mustNotWait; }));
    EXPECT_FALSE(LogContext::Here().mustNotWait);
}

TEST_F(ServiceLogTest, GivesAUserWhoIsRefusedAgainAndAgainAShare) {
    constexpr int kRefused = 300;
    for (int number = 1; number <= kRefused; ++number) {
        const RawSocket client = server_.Connect();
        client.Send(FrameOf({.kind = FrameKind::Hello, .status = number}));
        client.ReadToEnd();
    }
    EndLog();
    const std::vector<std::string> lines = LogLines();
    EXPECT_THAT(lines.front(), HasSubstr("frame of a client with status 1:"));
    EXPECT_THAT(lines, ::testing::Contains(HasSubstr(" beyond a user's share")));
    // One more for each second that it takes, with what was left out until then.
    EXPECT_LT(lines.size(), 100U);
    EXPECT_GE(lines.size(), static_cast<std::size_t>(UserShares::kMostLines));
}

TEST_F(ServiceLogTest, LimitsNoInstalledLogger) {
    EndLog();
    const zam_connector::testing::RecordingLogger recording;
    constexpr int kRefused = 100;
    TestServer server;
    for (int number = 1; number <= kRefused; ++number) {
        const RawSocket client = server.Connect();
        client.Send(FrameOf({.kind = FrameKind::Hello, .status = 1}));
        client.ReadToEnd();
    }
    EXPECT_EQ(recording.Records().size(), static_cast<std::size_t>(kRefused));
}

TEST(SayOnStderr, WritesATextAsItIs) {
    const zam_test::TemporaryFolder folder;
    const UniqueFd before(::dup(STDERR_FILENO));
    const UniqueFd file(::open(folder.Path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ::dup2(file.Get(), STDERR_FILENO);
    SayOnStderr("serving\n");
    ::dup2(before.Get(), STDERR_FILENO);
    EXPECT_EQ(zam_test::Content(folder.Path("out")), "serving\n");
}

}  // namespace
}  // namespace zam_platform::testing
