#include "log/stderr_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/background.h"
#include "support/lines.h"
#include "support/temporary_folder.h"
#include "zam_platform/unique_fd.h"

namespace zam_platform::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Patience = StderrLog::Patience;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Two ends that are connected: what is written to `write` is read from `read`.
struct Ends {
    UniqueFd read;
    UniqueFd write;
};

Ends MakePipe() {
    int ends[2];
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

Ends MakeSocketPair() {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

Ends MakeTerminal() {
    UniqueFd controlling(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    EXPECT_EQ(::grantpt(controlling.Get()), 0);
    EXPECT_EQ(::unlockpt(controlling.Get()), 0);
    char name[64];
    EXPECT_EQ(::ptsname_r(controlling.Get(), name, sizeof name), 0);
    UniqueFd terminal(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    return {std::move(controlling), std::move(terminal)};
}

/// Everything that can be read now.
std::string ReadAvailable(const UniqueFd& end) {
    std::string text;
    char piece[4096];
    pollfd ready{.fd = end.Get(), .events = POLLIN, .revents = 0};
    while (::poll(&ready, 1, 0) == 1) {
        const ssize_t got = ::read(end.Get(), piece, sizeof piece);
        if (got <= 0) {
            break;
        }
        text.append(piece, static_cast<std::size_t>(got));
    }
    return text;
}

bool PutLine(StderrOutput& output, std::string_view line) {
    return output.Write(line, steady_clock::now() + milliseconds{1});
}

/// Writes lines until none goes through any more.
void Fill(StderrOutput& output) {
    constexpr int kMost = 100'000;
    for (int number = 0; number < kMost && PutLine(output, "a line that fills\n"); ++number) {
    }
}

TEST(StderrOutput, WritesToWhateverTheDescriptorIs) {
    for (const auto make : {&MakePipe, &MakeSocketPair, &MakeTerminal}) {
        const Ends ends = make();
        StderrOutput output(ends.write.Get());
        EXPECT_TRUE(PutLine(output, "a line\n"));
        EXPECT_THAT(ReadAvailable(ends.read), ::testing::StartsWith("a line"));
    }
    const zam_test::TemporaryFolder folder;
    const UniqueFd file(::open(folder.Path("log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    StderrOutput output(file.Get());
    EXPECT_TRUE(PutLine(output, "one\n"));
    EXPECT_TRUE(PutLine(output, "two\n"));
    EXPECT_EQ(zam_test::Content(folder.Path("log")), "one\ntwo\n");
}

TEST(StderrOutput, GivesUpALineThatNobodyMakesRoomFor) {
    for (const auto make : {&MakePipe, &MakeSocketPair, &MakeTerminal}) {
        const Ends ends = make();
        StderrOutput output(ends.write.Get());
        Fill(output);
        EXPECT_FALSE(PutLine(output, "a line without room\n"));
        EXPECT_EQ(::fcntl(ends.write.Get(), F_GETFL) & O_NONBLOCK, 0)
            << "others share the description";
        const std::string filled = ReadAvailable(ends.read);
        EXPECT_THAT(filled, Not(HasSubstr("without room\n")));
        EXPECT_TRUE(PutLine(output, "a line with room\n"));
    }
}

TEST(StderrOutput, WaitsUntilThereIsRoom) {
    const Ends ends = MakePipe();
    const std::string before(60'000, 'y');
    ASSERT_EQ(::write(ends.write.Get(), before.data(), before.size()),
              static_cast<ssize_t>(before.size()));
    StderrOutput output(ends.write.Get());
    const Background reader([&] {
        pollfd full{.fd = ends.write.Get(), .events = POLLOUT, .revents = 0};
        EXPECT_TRUE(zam_test::Eventually([&] { return ::poll(&full, 1, 0) == 0; }));
        ReadAvailable(ends.read);
    });
    EXPECT_TRUE(output.Write(std::string(60'000, 'z') + '\n', steady_clock::now() + kBound));
}

TEST(StderrOutput, RaisesNoSignalWhenTheReaderIsGone) {
    for (const auto make : {&MakePipe, &MakeSocketPair, &MakeTerminal}) {
        Ends ends = make();
        ends.read.Reset();
        StderrOutput output(ends.write.Get());
        EXPECT_FALSE(PutLine(output, "a line\n"));
    }
    sigset_t pending;
    ::sigpending(&pending);
    EXPECT_EQ(::sigismember(&pending, SIGPIPE), 0);
}

TEST(StderrOutput, LeavesASignalThatWasHeldBackBefore) {
    sigset_t pipes;
    ::sigemptyset(&pipes);
    ::sigaddset(&pipes, SIGPIPE);
    sigset_t before;
    ::pthread_sigmask(SIG_BLOCK, &pipes, &before);
    ::pthread_kill(::pthread_self(), SIGPIPE);
    Ends ends = MakePipe();
    ends.read.Reset();
    StderrOutput output(ends.write.Get());
    EXPECT_FALSE(PutLine(output, "a line\n"));
    const timespec now{};
    EXPECT_EQ(::sigtimedwait(&pipes, nullptr, &now), SIGPIPE);
    EXPECT_EQ(::sigtimedwait(&pipes, nullptr, &now), -1) << "none more";
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(StderrOutput, GivesUpWhatADescriptorDoesNotTake) {
    const UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    const UniqueFd readOnly(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const Ends pipe = MakePipe();
    for (const int descriptor : {full.Get(), readOnly.Get(), pipe.read.Get(), 1 << 20, -1}) {
        StderrOutput output(descriptor);
        EXPECT_FALSE(PutLine(output, "a line\n")) << descriptor;
        EXPECT_FALSE(output.IsTorn());
    }
    EXPECT_THAT(ReadAvailable(pipe.read), IsEmpty());
}

TEST(StderrOutput, RaisesNoSignalAtTheLimitOfAFile) {
    const zam_test::TemporaryFolder folder;
    const std::string path = folder.Path("log");
    const auto writeBeyond = [&path] {
        const rlimit limit{.rlim_cur = 10, .rlim_max = 10};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        StderrOutput output(file.Get());
        const bool first = PutLine(output, "12345678\n");
        const bool second = PutLine(output, "abcdefgh\n");
        const bool wasTorn = output.IsTorn();
        const bool third = PutLine(output, "ABCDEFGH\n");
        return first && !second && wasTorn && !third && output.IsTorn();
    };
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(writeBeyond() ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(zam_test::Content(path), "12345678\na");
}

TEST(StderrOutput, FollowsADescriptorThatBecomesAnother) {
    Ends first = MakePipe();
    const Ends second = MakePipe();
    StderrOutput output(first.write.Get());
    EXPECT_TRUE(PutLine(output, "to the first\n"));
    ASSERT_EQ(::dup3(second.write.Get(), first.write.Get(), O_CLOEXEC), first.write.Get());
    EXPECT_TRUE(PutLine(output, "to the second\n"));
    EXPECT_EQ(ReadAvailable(second.read), "to the second\n");
    EXPECT_EQ(ReadAvailable(first.read), "to the first\n");
    char more = 0;
    EXPECT_EQ(::read(first.read.Get(), &more, 1), 0) << "nothing keeps the first open";
}

TEST(StderrOutput, NeedsNoDescriptorThatIsLeft) {
    const Ends ends = MakePipe();
    StderrOutput output(ends.write.Get());
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{.rlim_cur = 1, .rlim_max = before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_TRUE(PutLine(output, "a line\n"));
    Fill(output);
    EXPECT_FALSE(PutLine(output, "a line without room\n"));
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_THAT(ReadAvailable(ends.read), Not(HasSubstr("without")));
}

/// Between a look at whether there is room and a write that waits for none, another writer may take
/// it. Where the kernel cannot write to a pipe without waiting there is no other way.
TEST(StderrOutput, WaitsForNobodyWhenOthersFillThePipeToo) {
    const Ends ends = MakePipe();
    char byte = 'x';
    const iovec one{.iov_base = &byte, .iov_len = 1};
    if (::pwritev2(ends.write.Get(), &one, 1, -1, RWF_NOWAIT) != 1) {
        return;
    }
    ReadAvailable(ends.read);
    constexpr int kRounds = 200;
    constexpr int kWriters = 4;
    const std::string line(PIPE_BUF, 'x');
    std::atomic<int> round{0};
    std::atomic<int> done{0};
    std::atomic<int> begun{0};
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&] {
            StderrOutput output(ends.write.Get());
            ++begun;
            const auto await = [&round](int own) {
                while (round < own) {
                    std::this_thread::yield();
                }
            };
            for (int own = 1; own <= kRounds; ++own) {
                await(own);
                while (output.Write(line, steady_clock::time_point::min())) {
                }
                ++done;
            }
            await(kRounds + 1);
        });
    }
    // A sanitizer wants descriptors where a thread begins and where it ends.
    ASSERT_TRUE(zam_test::Eventually([&] { return begun == kWriters; }));
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{.rlim_cur = 1, .rlim_max = before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    int stuck = 0;
    while (round < kRounds) {
        const int allDone = ++round * kWriters;
        stuck += zam_test::Eventually([&] { return done == allDone; }) ? 0 : 1;
        while (done != allDone) {
            ReadAvailable(ends.read);
        }
        ReadAvailable(ends.read);
    }
    ::setrlimit(RLIMIT_NOFILE, &before);
    ++round;
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(stuck, 0);
}

// Time as the log sees it.
std::atomic<int> g_logMilliseconds{0};
steady_clock::time_point LogTime() noexcept {
    return steady_clock::time_point(milliseconds(g_logMilliseconds));
}

bool LogText(StderrLog& log, std::string_view text, Patience patience = Patience::Bounded) {
    return log.Write({.level = 4, .file = "f", .line = 1, .function = "F", .text = text}, patience);
}

/// A log over a pipe, at a time of the test's own.
class StderrLogTest : public ::testing::Test {
protected:
    StderrLogTest() { g_logMilliseconds = 0; }

    /// What was written since it was asked last, without times.
    std::vector<std::string> Written() const {
        std::vector<std::string> lines = zam_test::Lines(ReadAvailable(pipe_.read));
        for (std::string& line : lines) {
            line.erase(0, line.find('['));
        }
        return lines;
    }

    Ends pipe_ = MakePipe();
    std::unique_ptr<StderrLog> log_ = std::make_unique<StderrLog>(pipe_.write.Get(), &LogTime);
};

TEST_F(StderrLogTest, WritesOneOfEqualLinesInASecondAndTellsTheOthers) {
    EXPECT_FALSE(LogText(*log_, "again"));
    EXPECT_TRUE(LogText(*log_, "again"));
    EXPECT_TRUE(LogText(*log_, "again"));
    EXPECT_THAT(Written(), ElementsAre("[f:1 F] again"));
    g_logMilliseconds = 1000;
    EXPECT_FALSE(LogText(*log_, "again"));
    EXPECT_THAT(Written(), ElementsAre(EndsWith("] left out: 2 repeated"), "[f:1 F] again"));
    EXPECT_FALSE(LogText(*log_, "another"));
    EXPECT_THAT(Written(), ElementsAre("[f:1 F] another"));
}

TEST_F(StderrLogTest, TellsEveryTextInTheNextLineOfAny) {
    LogText(*log_, "one");
    LogText(*log_, "two");
    LogText(*log_, "one");
    LogText(*log_, "two");
    LogText(*log_, "three");
    EXPECT_THAT(Written(), ElementsAre("[f:1 F] one", "[f:1 F] two",
                                       EndsWith("] left out: 2 repeated"), "[f:1 F] three"));
}

TEST_F(StderrLogTest, TakesRecordsForEqualOnlyWhenTheyAreInEverything) {
    const LogRecord record{.level = 4, .file = "f", .line = 1, .function = "F", .text = "t"};
    LogRecord level = record;
    level.level = 3;
    LogRecord file = record;
    file.file = "g";
    LogRecord line = record;
    line.line = 2;
    LogRecord function = record;
    function.function = "G";
    for (const LogRecord& each : {record, level, file, line, function}) {
        EXPECT_FALSE(log_->Write(each, Patience::Bounded));
    }
    EXPECT_EQ(Written().size(), 5U);
    EXPECT_TRUE(log_->Write(record, Patience::Bounded));
}

TEST_F(StderrLogTest, TellsWhatWasLeftOutWhenAsked) {
    log_->TellLeftOut(Patience::Bounded);
    EXPECT_THAT(Written(), IsEmpty());
    LogText(*log_, "again");
    LogText(*log_, "again");
    log_->TellLeftOut(Patience::Bounded);
    log_->TellLeftOut(Patience::Bounded);
    EXPECT_THAT(Written(), ElementsAre("[f:1 F] again", EndsWith("] left out: 1 repeated")));
}

TEST_F(StderrLogTest, CountsWhatCannotBeWrittenAndTriesTheNextOfItsKind) {
    StderrOutput output(pipe_.write.Get());
    Fill(output);
    EXPECT_TRUE(LogText(*log_, "lost", Patience::Never));
    EXPECT_TRUE(LogText(*log_, "lost", Patience::Never));
    log_->TellLeftOut(Patience::Never);
    ReadAvailable(pipe_.read);
    EXPECT_FALSE(LogText(*log_, "lost", Patience::Never));
    EXPECT_THAT(Written(),
                ElementsAre(EndsWith("] left out: 2 that could not be written"), "[f:1 F] lost"));
}

TEST_F(StderrLogTest, WaitsForAFullPipeOnceAndNoLongerThanItsBound) {
    StderrOutput output(pipe_.write.Get());
    Fill(output);
    const auto begin = steady_clock::now();
    constexpr int kLines = 1000;
    for (int number = 0; number < kLines; ++number) {
        LogText(*log_, std::to_string(number));
    }
    EXPECT_LT(steady_clock::now() - begin, StderrLog::kLongestWait * kLines / 10);
}

TEST_F(StderrLogTest, BeginsANewLineBehindATornOne) {
    const std::string filling(60'000, 'x');
    ASSERT_GT(::write(pipe_.write.Get(), filling.data(), filling.size()), 0);
    EXPECT_TRUE(LogText(*log_, std::string(16'000, 'y')));
    ReadAvailable(pipe_.read);
    LogText(*log_, "whole");
    const std::vector<std::string> lines = zam_test::Lines(ReadAvailable(pipe_.read));
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "");
    EXPECT_THAT(lines[1], EndsWith("] left out: 1 that could not be written"));
    EXPECT_THAT(lines[2], EndsWith("[f:1 F] whole"));
}

/// So many lines and no more.
class CountedShare final : public LogShare {
public:
    explicit CountedShare(int left) : left_(left) {}
    bool Take(steady_clock::time_point /*now*/) noexcept override { return left_-- > 0; }

private:
    int left_;
};

TEST_F(StderrLogTest, LeavesOutWhatIsBeyondAShareOfWhatWouldBeWritten) {
    CountedShare share(2);
    StderrLog log(pipe_.write.Get(), &LogTime, &share);
    LogText(log, "one");
    LogText(log, "one");
    LogText(log, "two");
    LogText(log, "three");
    log.TellLeftOut(Patience::Bounded);
    EXPECT_THAT(Written(),
                ElementsAre("[f:1 F] one", EndsWith("] left out: 1 repeated"), "[f:1 F] two",
                            EndsWith("] left out: 1 beyond a user's share")));
}

TEST_F(StderrLogTest, LimitsNothingBelowFailures) {
    CountedShare share(0);
    StderrLog log(pipe_.write.Get(), &LogTime, &share);
    EXPECT_FALSE(
        log.Write({.level = 3, .file = "f", .line = 1, .function = "F", .text = "asked for"},
                  Patience::Bounded));
    EXPECT_TRUE(LogText(log, "failure"));
    EXPECT_THAT(Written(), ElementsAre("[f:1 F] asked for"));
}

TEST(TimedLock, IsWaitedForNoLongerThanAsked) {
    TimedLock lock;
    ASSERT_TRUE(lock.Lock(milliseconds{0}));
    EXPECT_FALSE(lock.Lock(milliseconds{0}));
    EXPECT_FALSE(lock.Lock(milliseconds{2}));
    lock.Unlock();
    EXPECT_TRUE(lock.Lock(milliseconds{0}));
    lock.Unlock();
}

TEST(TimedLock, LetsOneThreadInAtATime) {
    constexpr int kTimes = 10'000;
    TimedLock lock;
    int count = 0;
    const auto work = [&] {
        for (int time = 0; time < kTimes; ++time) {
            ASSERT_TRUE(lock.Lock(kBound));
            ++count;
            lock.Unlock();
        }
    };
    {
        const Background first(work);
        const Background second(work);
    }
    EXPECT_EQ(count, 2 * kTimes);
}

}  // namespace
}  // namespace zam_platform::testing
