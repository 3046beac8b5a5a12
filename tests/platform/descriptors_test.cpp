#include "support/descriptors.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "support/no_descriptors_left.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "support/test_server.h"
#include "vd/service_locator.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using zam_test::ScopedEnvironment;
using zam_test::TemporaryFolder;

class Descriptors : public ::testing::Test {
protected:
    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(Descriptors, AreNotInheritedByOtherPrograms) {
    const std::set<int> before = OpenDescriptors();
    TestServer server;
    const DirectoryLock lock{RuntimeDirectory(server.Directory())};
    const ScopedEnvironment runtime("ZAM_RUNTIME_DIR", server.Directory());
    VdZorTransport transport;
    VdZorTransport_Init(&transport, ServiceLocatorConnect(kTestService), 0, 0);
    EXPECT_EQ(TestCall(kEcho, 1).On(transport), kStatusOk);

    const std::set<int> made = NewSince(before);
    EXPECT_GE(made.size(), 5U) << "directory, lock, listening socket and both ends";
    EXPECT_TRUE(Inheritable(made).empty()) << Describe(Inheritable(made));
}

TEST_F(Descriptors, OfAConnectionAreNoStandardOnes) {
    const TemporaryFolder temp;
    const ScopedEnvironment runtime("ZAM_RUNTIME_DIR", temp.Path());
    const RawListener listener(temp.Path("closed.sock"));
    const UniqueFd before(::dup(STDERR_FILENO));
    ::close(STDERR_FILENO);
    const std::uint32_t handle = ServiceLocatorConnect("closed");
    struct stat standard {};
    const bool isSocket = ::fstat(STDERR_FILENO, &standard) == 0 && S_ISSOCK(standard.st_mode);
    ::dup2(before.Get(), STDERR_FILENO);
    EXPECT_NE(handle, VD_ZOR_INVALID_HANDLE);
    EXPECT_FALSE(isSocket);
}

TEST_F(Descriptors, AreClosedWithALinkAndAServer) {
    const std::set<int> before = OpenDescriptors();
    {
        TestServer server;
        const auto link = LinkTo(server);
        EXPECT_EQ(TestCall(kEcho, 1).On(*link), kStatusOk);
        EXPECT_EQ(TestCall(kDrop).On(*link), kStatusBroken);
        EXPECT_EQ(TestCall(kFail, 20).On(*link), kStatusUnanswered);
        const RawSocket refused = server.Connect();
        refused.Send(LookupFrame("x"));
        refused.ReadToEnd();
    }
    EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
}

TEST_F(Descriptors, DoNotLeakThroughFailures) {
    TemporaryFolder temp;
    const ScopedEnvironment runtime("ZAM_RUNTIME_DIR", temp.Path());
    RawListener listener(temp.Path("leak.sock"));
    VdZorTransport transport;
    VdZorTransport_Init(&transport, ServiceLocatorConnect("leak"), 0, 0);
    const RawSocket opened = listener.Accept();
    const std::set<int> before = OpenDescriptors();
    {
        // The connection that is there first breaks, and so does each of those that follow.
        const Background script([&] {
            opened.Send(AnswerFrame(9, 1));
            for (int round = 0; round < 5; ++round) {
                const RawSocket peer = listener.Accept();
                peer.Send(AnswerFrame(9, 1));
                peer.ReadToEnd();
            }
        });
        for (int round = 0; round < 6; ++round) {
            EXPECT_EQ(TestCall().On(transport), kStatusProtocol);
        }
    }
    listener.Close();
    EXPECT_EQ(TestCall().On(transport), kStatusUnavailable);
    ASSERT_EQ(::unlink(temp.Path("leak.sock").c_str()), 0);
    EXPECT_EQ(TestCall().On(transport), kStatusUnavailable);
    temp.Write("leak.sock", "");
    EXPECT_EQ(TestCall().On(transport), kStatusUntrusted);
    EXPECT_EQ(ServiceLocatorConnect("leak"), VD_ZOR_INVALID_HANDLE);
    EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
}

TEST_F(Descriptors, ThatRunOutFailTheClientsCall) {
    TestServer server;
    const ScopedEnvironment runtime("ZAM_RUNTIME_DIR", server.Directory());
    VdZorTransport transport;
    VdZorTransport_Init(&transport, ServiceLocatorConnect(kTestService), 0, 0);
    // The one connection that is open is in use, so a second call needs another.
    Background blocked([&] { EXPECT_EQ(TestCall(kHold, 1).On(transport), kStatusOk); });
    server.Endpoint().AwaitHeld(1);
    {
        const NoDescriptorsLeft none;
        EXPECT_EQ(TestCall(kEcho, 1).On(transport), kStatusResources);
        EXPECT_EQ(ServiceLocatorConnect(kTestService), VD_ZOR_INVALID_HANDLE);
    }
    EXPECT_EQ(TestCall(kEcho, 1).On(transport), kStatusOk);
    server.Endpoint().ReleaseAll();
}

TEST_F(Descriptors, ThatRunOutPauseTheServersAccepting) {
    logger_.Clear();  // the sanitizer meets this test's type, too
    TestServer server({.acceptPause = std::chrono::milliseconds(5)});
    const RawSocket served = server.Greet();
    const auto isServed = [&served] {
        served.Send(LookupFrame(kTestEndpoint));
        return served.ReadFrame().prelude.kind == FrameKind::LookupAnswer;
    };
    EXPECT_TRUE(isServed());
    for (int round = 0; round < 2; ++round) {
        std::vector<RawSocket> waiting;
        {
            // Sockets that are there already connect without a further descriptor on this side.
            std::vector<UniqueFd> unconnected;
            for (int index = 0; index < 3; ++index) {
                unconnected.emplace_back(NewUnconnectedSocket());
            }
            const SocketAddress address(server.SocketPath());
            const NoDescriptorsLeft none;
            logger_.Clear();
            for (UniqueFd& socket : unconnected) {
                address.Connect(socket.Get());
                waiting.emplace_back(std::move(socket));
                waiting.back().Send(HelloFrame() + LookupFrame(kTestEndpoint));
            }
            Await("the pause", [this] { return !logger_.Records().empty(); });
            // Those who are connected are served meanwhile, over many of the pauses.
            const auto start = std::chrono::steady_clock::now();
            while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(40)) {
                EXPECT_TRUE(isServed());
            }
            EXPECT_FALSE(waiting[0].HasInput());
        }
        for (const RawSocket& socket : waiting) {
            EXPECT_EQ(socket.ReadFrame().prelude.kind, FrameKind::LookupAnswer);
        }
        // What the server still has to close would be descriptors in the next round.
        waiting.clear();
        Await("the end of those who waited", [&server] { return server.Connections() == 1; });
        ASSERT_EQ(logger_.Records().size(), 1U) << "one record of each time";
        EXPECT_EQ(logger_.Records()[0].text,
                  "accept: Too many open files: trying again every 5 ms");
    }
}

}  // namespace
}  // namespace zam_platform::testing
