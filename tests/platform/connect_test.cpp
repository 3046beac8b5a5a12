#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "client/socket_channel.h"
#include "support/other_user.h"
#include "support/raw_socket.h"
#include "support/signal_storm.h"
#include "support/temporary_folder.h"
#include "zam_platform/posix_error.h"

namespace zam_platform::testing {
namespace {

using zam_test::kSomebodyElse;
using zam_test::TemporaryFolder;

class ConnectToServiceTest : public ::testing::Test {
protected:
    /// Status and text of the error; fails the test when there is none.
    void ExpectRefusal(TransportStatus status, const std::string& text) {
        try {
            ConnectToService(directory_, "svc");
            ADD_FAILURE() << "connected";
        } catch (const PlatformError& error) {
            EXPECT_EQ(error.Status(), status);
            EXPECT_EQ(std::string(error.what()), fmt::format("socket '{}': {}", path_, text));
        }
    }

    TemporaryFolder temp_;
    RuntimeDirectory directory_{temp_.Path()};
    std::string path_ = temp_.Path("svc.sock");
};

TEST_F(ConnectToServiceTest, GivesAConnectedSocket) {
    const RawListener listener(path_);
    const RawSocket client(ConnectToService(directory_, "svc"));
    const RawSocket server = listener.Accept();
    client.Send(BytesOf("there"));
    EXPECT_EQ(server.Read(5), BytesOf("there"));
    server.Send(BytesOf("back"));
    EXPECT_EQ(client.Read(4), BytesOf("back"));
}

TEST_F(ConnectToServiceTest, ReachesASocketHoweverLongItsPathIs) {
    std::string path = temp_.Path();
    for (int level = 0; level < 5; ++level) {
        path += '/' + std::string(100, static_cast<char>('a' + level));
        ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
    }
    const std::string name(64, 'n');
    const RawListener listener(path + '/' + name + ".sock");
    const RawSocket client(ConnectToService(RuntimeDirectory(path), name));
    const RawSocket server = listener.Accept();
    client.Send(BytesOf("x"));
    EXPECT_EQ(server.Read(1), BytesOf("x"));
}

TEST_F(ConnectToServiceTest, IsUnavailableWithoutASocket) {
    ExpectRefusal(kStatusUnavailable, "No such file or directory");
}

TEST_F(ConnectToServiceTest, IsUnavailableWhenTheServiceHasGone) {
    RawListener listener(path_);
    listener.Close();
    ExpectRefusal(kStatusUnavailable, "Connection refused");
}

TEST_F(ConnectToServiceTest, RefusesWhatIsNoSocket) {
    temp_.Write("svc.sock", "");
    ExpectRefusal(kStatusUntrusted, "is no socket");
    ASSERT_EQ(::unlink(path_.c_str()), 0);
    temp_.MakeFolder("svc.sock");
    ExpectRefusal(kStatusUntrusted, "is no socket");
}

TEST_F(ConnectToServiceTest, RefusesASymbolicLinkToAGoodSocket) {
    const RawListener listener(temp_.Path("real.sock"));
    ASSERT_EQ(::symlink("real.sock", path_.c_str()), 0);
    ExpectRefusal(kStatusUntrusted, "is no socket");
    EXPECT_FALSE(listener.HasConnection());
}

TEST_F(ConnectToServiceTest, RefusesASocketOfSomebodyElse) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a socket away";
    }
    const RawListener listener(path_);
    ASSERT_EQ(::chown(path_.c_str(), kSomebodyElse, kSomebodyElse), 0);
    ExpectRefusal(kStatusUntrusted,
                  "belongs to user 4242, not to root or user 0, who owns the directory");
    EXPECT_FALSE(listener.HasConnection()) << "connected before the check";
}

TEST_F(ConnectToServiceTest, ConnectsToWhatItChecked) {
    // Another socket under the same name is another service; the directory stays the same.
    RawListener first(path_);
    ASSERT_EQ(::rename(path_.c_str(), temp_.Path("old.sock").c_str()), 0);
    const RawListener second(path_);
    const RawSocket client(ConnectToService(directory_, "svc"));
    EXPECT_TRUE(second.HasConnection());
    EXPECT_FALSE(first.HasConnection());
}

TEST_F(ConnectToServiceTest, DoesNotFollowADirectoryThatIsReplaced) {
    const std::string run = temp_.MakeFolder("run");
    const RuntimeDirectory opened(run);
    const RawListener inside(run + "/svc.sock");
    ASSERT_EQ(::rename(run.c_str(), temp_.Path("moved").c_str()), 0);
    temp_.MakeFolder("run");
    const RawListener outside(run + "/svc.sock");
    const RawSocket client(ConnectToService(opened, "svc"));
    EXPECT_TRUE(inside.HasConnection());
    EXPECT_FALSE(outside.HasConnection());
}

TEST_F(ConnectToServiceTest, EndsAtTheDeadlineWhileTheServiceAcceptsNobody) {
    const RawListener listener(path_, 0);
    const RawSocket first = ConnectRaw(path_);
    const auto start = std::chrono::steady_clock::now();
    try {
        ConnectToService(directory_, "svc", start + std::chrono::milliseconds(40));
        ADD_FAILURE() << "connected";
    } catch (const PlatformError& error) {
        EXPECT_EQ(error.Status(), kStatusTimeout);
        EXPECT_EQ(
            std::string(error.what()),
            fmt::format("socket '{}': the service did not take the connection in time", path_));
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
}

TEST_F(ConnectToServiceTest, SurvivesStormsOfSignalsWhileItWaits) {
    const RawListener listener(path_, 0);
    const RawSocket first = ConnectRaw(path_);
    for (const bool hasDeadline : {false, true}) {
        const SignalStorm storm;
        const Background accepting([&] {
            Await("interruptions", [&] { return storm.Sent() >= 50; });
            listener.Accept();
        });
        const Deadline deadline =
            hasDeadline ? Deadline(std::chrono::steady_clock::now() + kBound) : Deadline();
        EXPECT_GE(ConnectToService(directory_, "svc", deadline).Get(), 0);
    }
}

}  // namespace
}  // namespace zam_platform::testing
