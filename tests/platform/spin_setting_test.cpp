#include "zam_platform/spin_setting.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "shared/cpu_share.h"
#include "shared/shared_file.h"
#include "support/memory_peer.h"
#include "support/other_user.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "support/test_call.h"
#include "vd/service_locator.h"
#include "vd/transport_features.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using std::chrono::microseconds;
using std::chrono::nanoseconds;
using Clock = std::chrono::steady_clock;
using zam_test::ScopedEnvironment;

/// What comes of a setting of so much here.
microseconds OnThisMachine(microseconds setting) {
    const bool isOff = !HasFastChannel() || ::sysconf(_SC_NPROCESSORS_ONLN) == 1;
    return isOff ? microseconds(0) : setting;
}

microseconds OnThisMachineInAService(microseconds setting) {
    return IsCommitStrict() ? microseconds(0) : OnThisMachine(setting);
}

TEST(SpinSetting, IsTheVariablesUnlessAnotherIsWished) {
    using Wish = std::optional<microseconds>;
    struct Row {
        std::optional<std::string> variable;
        Wish wished;
        microseconds cap;
        bool isTold;
    };
    const microseconds most(50);
    const Row rows[] = {
        {{}, {}, most, false},
        {"0", {}, microseconds(0), false},
        {"7", {}, microseconds(7), false},
        {"50", {}, most, false},
        {"51", {}, most, true},
        {"", {}, most, true},
        {"7", microseconds(9), microseconds(9), false},
        {"7", microseconds(0), microseconds(0), false},
        {"0", microseconds(9), microseconds(9), false},
        {"51", microseconds(9), microseconds(9), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.variable.value_or("none"));
        const zam_connector::testing::RecordingLogger logger;
        const ScopedEnvironment variable("ZAM_SPIN", row.variable);
        EXPECT_EQ(SpinCap(row.wished), OnThisMachineInAService(row.cap));
        EXPECT_EQ(logger.Records().size(), row.isTold && HasFastChannel() ? 1U : 0U);
    }
}

/// Runs a program that tells its setting; as one whose caller is another user when it is told to.
int SettingOfProgram(const char* side, const char* variable, bool isOfAnotherUser) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("ZAM_SPIN", variable, 1);
        constexpr auto kSame = static_cast<uid_t>(-1);
        if (!isOfAnotherUser || ::setresuid(zam_test::kSomebodyElse, kSame, kSame) == 0) {
            ::execl(ZAM_SPIN_PROGRAM, "zam_spin_program", side, nullptr);
        }
        ::_exit(255);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(SpinSetting, IsNotReadByAProgramThatHasMoreRightsThanItsCaller) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can be called by another user";
    }
    constexpr int kIsSecure = 100;
    for (const char* const side : {"client", "service"}) {
        SCOPED_TRACE(side);
        const auto cap = [side](int us) {
            const microseconds setting(us);
            return static_cast<int>(
                (side[0] == 'c' ? OnThisMachine(setting) : OnThisMachineInAService(setting))
                    .count());
        };
        EXPECT_EQ(SettingOfProgram(side, "7", false), cap(7));
        EXPECT_EQ(SettingOfProgram(side, "7", true), cap(50) + kIsSecure);
        EXPECT_EQ(SettingOfProgram(side, "0", true), cap(50) + kIsSecure);
    }
}

/// A service that grants memory and says that it looks there, and does so only when its client has
/// gone to sleep: it could as well have been stopped. What comes by the socket it answers later
/// than a look may last.
class SleepyService {
public:
    explicit SleepyService(const std::string& folder)
        : listener_(folder + '/' + SocketName(kTestService)), thread_([this] { Run(); }) {}
    SleepyService(const SleepyService&) = delete;
    SleepyService& operator=(const SleepyService&) = delete;
    ~SleepyService() { isOver_ = true; }

private:
    void Run() {
        const RawSocket client = listener_.Accept();
        const ServiceMemory memory = MakeServiceMemory();
        memory.answers->polling.store(kPolling);
        std::uint64_t last = 0;
        while (!isOver_) {
            if (memory.requests->request.load() == last + 1 &&
                memory.requests->waiting.load() == 0) {
                memory.answers->taken.store(++last);
                client.Send(AnswerFrame(last, last));
            } else if (client.HasInput()) {
                const Frame frame = client.ReadFrame();
                Answer(client, frame, memory);
                last = frame.prelude.callNumber;
            }
        }
    }

    static void Answer(const RawSocket& client, const Frame& frame, const ServiceMemory& memory) {
        const std::uint64_t number = frame.prelude.callNumber;
        switch (frame.prelude.kind) {
            case FrameKind::Lookup:
                return client.Send(FrameOf({.kind = FrameKind::LookupAnswer, .callNumber = number},
                                           Bytes{0xFF, 0xFF, 2, 0, 0, 0, 0, 0}));
            case FrameKind::MemoryRequest:
                return SendWithFiles(client, MemoryAnswerFrame(number),
                                     {memory.requestFile.Get(), memory.answerFile.Get()});
            case FrameKind::Call:
                for (const auto begin = Clock::now(); Clock::now() < begin + 2 * kMaxSpin;) {
                }
                return client.Send(AnswerFrame(number, number));
            default:
                return;
        }
    }

    RawListener listener_;
    std::atomic<bool> isOver_{false};
    Background thread_;
};

/// In a process of its own, which has not read the variable before: whether each of this process's
/// looks for an answer lasts as long as it says, and no look twice as long that nobody interrupts.
bool LooksLastAsToldBy(const char* variable) {
    const zam_test::TemporaryFolder folder;
    const ScopedEnvironment runtime("ZAM_RUNTIME_DIR", folder.Path());
    const ScopedEnvironment spin("ZAM_SPIN", variable);
    const SleepyService service(folder.Path());
    VdZorTransport transport{};
    VdZorTransport_Init(&transport, ServiceLocatorConnect(kTestService), 0, 0);
    const auto told = *ParseSpin(variable);
    constexpr std::uint64_t kMostLooks = 1000;
    VdTransportStatistics before{};
    VdTransportStatistics after{};
    before.size = after.size = sizeof(before);
    nanoseconds shortest = nanoseconds::max();
    const auto end = Clock::now() + kBound;
    while (after.vainPolls < kMostLooks && Clock::now() < end &&
           (after.vainPolls < 10 || shortest >= 2 * told)) {
        if (TestCall().On(transport) != kStatusOk) {
            return false;
        }
        VdZorTransport_Statistics(&transport, &after);
        if (after.vainPolls != before.vainPolls) {
            shortest = std::min(shortest, nanoseconds(after.vainPollNs - before.vainPollNs));
        }
        before = after;
    }
    return shortest >= told && shortest < 2 * told;
}

TEST(SpinSetting, BoundsEachLookOfAClient) {
    if (OnThisMachine(kMaxSpin).count() == 0 || !HasCpuForPolling(Clock::now())) {
        GTEST_SKIP() << "clients look where there are two CPUs";
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const char* const variable : {"20", "45"}) {
        EXPECT_EXIT(std::_Exit(LooksLastAsToldBy(variable) ? 0 : 1), ::testing::ExitedWithCode(0),
                    "")
            << variable;
    }
}

}  // namespace
}  // namespace zam_platform::testing
