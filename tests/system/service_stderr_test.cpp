#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>

#include "service_fixture.h"

namespace zam_connector::test {
namespace {

/// A service that has much to log, with a stderr of the test's choice.
class ServiceStderr : public ::testing::Test {
protected:
    /// Starts the service with a redirection of the shell's behind its command line.
    void Start(const std::string& redirection) {
        constexpr char kProgram[] = "program";
        scripts_.WriteData(kProgram,
                           "#!/bin/sh\nexec '" ZAM_CONNECTORD "' \"$@\" " + redirection + "\n");
        const std::string program = scripts_.DataDirectory() + "/" + kProgram;
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        service_ = std::make_unique<testing::ServiceProcess>(program);
        ::setenv("ZAM_RUNTIME_DIR", service_->RuntimeDirectory().c_str(), 1);
        service_->WriteData("policy.json", "no JSON");
        service_->Start();
    }

    /// Sends what is no frame, different each time, and waits until it is refused.
    void BeRefused(unsigned char number) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = service_->RuntimeDirectory() + "/zam_connector_id.sock";
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
                  0);
        std::array<unsigned char, 64> garbage;
        garbage.fill(number);
        ASSERT_EQ(::send(socket, garbage.data(), garbage.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(garbage.size()));
        while (::recv(socket, garbage.data(), garbage.size(), 0) > 0) {
        }
        ::close(socket);
    }

    /// Serves while it has a line to log between any two calls, and ends in order.
    void ExpectServes() {
        RealConnection connection;
        for (int number = 0; number < kCalls; ++number) {
            BeRefused(static_cast<unsigned char>(number));
            ZamConnectorState state{};
            ASSERT_EQ(connection.Controller().GetState(state), 0);
        }
        EXPECT_EQ(service_->Stop(), 0);
    }

    static constexpr int kCalls = 200;

    testing::RecordingLogger logger_;
    testing::ServiceProcess scripts_{""};
    std::unique_ptr<testing::ServiceProcess> service_;
};

TEST_F(ServiceStderr, CostsNothingWhenItIsFull) {
    Start("2>/dev/full");
    ExpectServes();
}

TEST_F(ServiceStderr, CostsNothingWhenItIsClosed) {
    Start("2>&-");
    ExpectServes();
    Start("0<&- 1>&- 2>&-");
    ExpectServes();
}

/// How the shell leads stderr to a descriptor of this process.
std::string ToDescriptor(int descriptor) {
    return "2>/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(descriptor);
}

TEST_F(ServiceStderr, CostsNothingWhenItIsAFullPipeThatNobodyReads) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    while (::write(ends[1], "x", 1) == 1) {
    }
    Start(ToDescriptor(ends[1]));
    ExpectServes();
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(ServiceStderr, CostsNothingWhenItIsAPipeWithoutAReader) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    Start(ToDescriptor(ends[1]));
    ::close(ends[0]);
    ExpectServes();
    ::close(ends[1]);
}

TEST_F(ServiceStderr, HoldsAShareOfWhatAUsersClientsDoWrong) {
    Start("");
    ExpectServes();
    const std::string log = service_->Log();
    EXPECT_THAT(log, ::testing::HasSubstr("connection closed"));
    EXPECT_THAT(log, ::testing::HasSubstr(" beyond a user's share"));
    EXPECT_LT(std::count(log.begin(), log.end(), '\n'), kCalls / 2);
}

}  // namespace
}  // namespace zam_connector::test
