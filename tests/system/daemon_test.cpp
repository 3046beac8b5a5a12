#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <vector>

#include "service_fixture.h"
#include "support/program.h"
#include "support/scoped_environment.h"

namespace zam_connector::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

using ServiceDaemon = ServiceTest;

TEST_F(ServiceDaemon, EndsCleanlyWhenAskedTo) {
    StartService();
    EXPECT_EQ(service_.Stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(service_.RuntimeDirectory() + "/zam_connector_id.sock"));
}

TEST_F(ServiceDaemon, IsAloneInItsRuntimeDirectory) {
    StartService();
    const ProgramResult second = RunProgram(
        ZAM_CONNECTORD,
        {"--data", service_.DataDirectory(), "--runtime-dir", service_.RuntimeDirectory()});
    EXPECT_EQ(second.status, 2);
    EXPECT_THAT(second.out, IsEmpty());
    EXPECT_THAT(second.err, HasSubstr("another connector service"));
    EXPECT_EQ(State(), ZamConnectorState::Stopped) << "the first goes on";
}

TEST_F(ServiceDaemon, ReplacesTheSocketOfOneThatWasKilled) {
    StartService();
    service_.Kill();
    EXPECT_TRUE(std::filesystem::exists(service_.RuntimeDirectory() + "/zam_connector_id.sock"));
    service_.Start();
    EXPECT_EQ(State(), ZamConnectorState::Stopped);
}

TEST_F(ServiceDaemon, RefusesARuntimeDirectoryThatOthersMayWrite) {
    std::filesystem::permissions(service_.RuntimeDirectory(), std::filesystem::perms::all);
    const ProgramResult result = RunProgram(
        ZAM_CONNECTORD,
        {"--data", service_.DataDirectory(), "--runtime-dir", service_.RuntimeDirectory()});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr(service_.RuntimeDirectory()));
    EXPECT_THAT(result.err, HasSubstr("lets others write"));
}

TEST_F(ServiceDaemon, NamesADataFolderThatIsNotThere) {
    const ProgramResult result =
        RunProgram(ZAM_CONNECTORD, {"--data", service_.DataDirectory() + "/nowhere",
                                    "--runtime-dir", service_.RuntimeDirectory()});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("nowhere"));
}

TEST_F(ServiceDaemon, SaysWhatIsWrongWithItsOptions) {
    const ProgramResult result = RunProgram(ZAM_CONNECTORD, {"--dta", "x"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, HasSubstr("--dta"));
}

TEST_F(ServiceDaemon, RefusesToStartWithTooFewDescriptors) {
    const ProgramResult result = RunProgram(
        "/bin/sh", {"-c", "ulimit -n 64; exec \"$0\" \"$@\"", ZAM_CONNECTORD, "--data",
                    service_.DataDirectory(), "--runtime-dir", service_.RuntimeDirectory()});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("(RLIMIT_NOFILE) is 64, at least 80 are needed"));
}

TEST_F(ServiceDaemon, TellsItsServiceManagerWhenItIsReadyAliveAndAtItsEnd) {
    const std::string path = service_.RuntimeDirectory() + "/notify";
    const int manager = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(manager, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    const timeval bound{.tv_sec = 60, .tv_usec = 0};
    ::setsockopt(manager, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof(bound));
    const auto next = [manager] {
        std::string state(64, '\0');
        const ssize_t got = ::recv(manager, state.data(), state.size(), 0);
        return state.substr(0, got < 0 ? 0 : static_cast<std::size_t>(got));
    };

    const zam_test::ScopedEnvironment socket("NOTIFY_SOCKET", path);
    constexpr std::chrono::milliseconds kPeriod{200};
    const zam_test::ScopedEnvironment watchdog("WATCHDOG_USEC", "200000");
    service_.Start();
    EXPECT_EQ(next(), "READY=1");
    std::chrono::nanoseconds shortest = std::chrono::hours(1);
    for (int beat = 0; beat < 4; ++beat) {
        const auto before = std::chrono::steady_clock::now();
        EXPECT_EQ(next(), "WATCHDOG=1");
        if (beat != 0) {
            shortest = std::min<std::chrono::nanoseconds>(
                shortest, std::chrono::steady_clock::now() - before);
        }
    }
    EXPECT_LT(shortest, kPeriod);
    EXPECT_EQ(service_.Stop(), 0);
    std::string last = next();
    while (last == "WATCHDOG=1") {
        last = next();
    }
    EXPECT_EQ(last, "STOPPING=1");
    ::close(manager);
}

TEST_F(ServiceDaemon, KeepsDescriptorsForOthersWhenOneUserTakesAllItCan) {
    constexpr int kFlood = 150;
    service_.WriteData("limited", "#!/bin/sh\nulimit -n 200\nexec '" ZAM_CONNECTORD "' \"$@\"\n");
    const std::string program = service_.DataDirectory() + "/limited";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    testing::ServiceProcess limited(program);
    limited.Start();
    ::setenv("ZAM_RUNTIME_DIR", limited.RuntimeDirectory().c_str(), 1);
    connection_ = std::make_unique<RealConnection>();

    std::vector<int> silent;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = limited.RuntimeDirectory() + "/zam_connector_id.sock";
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    for (int number = 0; number < kFlood; ++number) {
        silent.push_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(
            ::connect(silent.back(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
            0);
    }
    EXPECT_TRUE(Eventually([&limited] {
        return limited.Log().find("has 68 connections, the most allowed") != std::string::npos;
    }));
    EXPECT_EQ(State(), ZamConnectorState::Stopped);
    EXPECT_THAT(limited.Log(), ::testing::Not(HasSubstr("accept:")));
    for (const int socket : silent) {
        ::close(socket);
    }
}

TEST_F(ServiceDaemon, ServesTheSampleThatItWrites) {
    const std::string& sample = service_.DataDirectory();
    const ProgramResult written = RunProgram(ZAM_CONNECTORD, {"--init", sample});
    ASSERT_EQ(written.status, 0) << written.err;
    EXPECT_TRUE(std::filesystem::exists(sample + "/connection.json"));
    EXPECT_TRUE(std::filesystem::exists(sample + "/faults.json"));

    StartService();
    EXPECT_EQ(State(), ZamConnectorState::Stopped);
    EXPECT_EQ(Controller().Start(Parameters()), 0);
    EXPECT_TRUE(Eventually([this] { return State() == ZamConnectorState::Connected; }));
}

TEST_F(ServiceDaemon, OverwritesNothingWithItsSample) {
    const std::string sample = service_.DataDirectory() + "/sample";
    ASSERT_EQ(RunProgram(ZAM_CONNECTORD, {"--init", sample}).status, 0);
    service_.WriteData("sample/connection.json", "edited");
    const ProgramResult again = RunProgram(ZAM_CONNECTORD, {"--init", sample});
    EXPECT_NE(again.status, 0);
    EXPECT_THAT(again.err, HasSubstr("connection.json"));
    EXPECT_EQ(service_.ReadData("sample/connection.json"), "edited");
}

}  // namespace
}  // namespace zam_connector::test
