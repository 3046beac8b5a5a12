#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <utility>

#include "support/memory_peer.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// What clients can keep of the service's memory: they may hold the files for as long as they like.
class ServerMemoryPages : public ::testing::Test {
protected:
    static std::size_t BytesOf(const UniqueFd& file) {
        struct stat status {};
        EXPECT_EQ(::fstat(file.Get(), &status), 0);
        return static_cast<std::size_t>(status.st_blocks) * 512;
    }

    static UniqueFd CopyOf(const UniqueFd& file) { return UniqueFd(::dup(file.Get())); }

    /// Makes the peer's first call, with an answer of so many bytes.
    static void Call(MemoryPeer& peer, std::size_t bytes) {
        EXPECT_EQ(peer.Call(1, CallFrame(1, kFill, bytes)).arena.size(), bytes);
    }

    static void AwaitGivenUp(const MemoryPeer& peer) {
        Await("the end", [&peer] { return peer.Answers().polling.load() == kGivenUp; });
    }

    static ServerLimits Limits() {
        return {.spinCap = std::chrono::microseconds(50),
                .memoryKept = std::chrono::milliseconds(20)};
    }

    /// Rests, so that nothing is given up before the test is done with it.
    static ServerLimits Patient() { return {.spinCap = std::chrono::microseconds(50)}; }

    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(ServerMemoryPages, GoBackWhenTheClientHasGone) {
    TestServer server(Patient());
    UniqueFd requests;
    UniqueFd answers;
    {
        MemoryPeer peer(server);
        Call(peer, 100000);
        requests = CopyOf(peer.RequestFile());
        answers = CopyOf(peer.AnswerFile());
        EXPECT_EQ(BytesOf(requests), kRequestFileBytes);
        EXPECT_EQ(BytesOf(answers), kAnswerFileBytes);
    }
    Await("the end", [&server] { return server.Connections() == 0; });
    EXPECT_EQ(BytesOf(requests), 0U);
    EXPECT_EQ(BytesOf(answers), kSharedPage) << "the words about its calls";
}

TEST_F(ServerMemoryPages, GoBackWhenTheClientBreaksARule) {
    TestServer server(Patient());
    MemoryPeer peer(server);
    Call(peer, 100000);
    peer.Look(7);
    Await("the end", [&server] { return server.Connections() == 0; });
    EXPECT_EQ(BytesOf(peer.RequestFile()), 0U);
    EXPECT_EQ(BytesOf(peer.AnswerFile()), kSharedPage);
    EXPECT_EQ(peer.Answers().taken.load(), 1U) << "it is not to be made again";
    EXPECT_EQ(peer.Answers().answer.load(), 0U) << "there is none any more";
}

TEST_F(ServerMemoryPages, GoBackButForWhatAClientMayBeAboutToRead) {
    TestServer server(Patient());
    MemoryPeer peer(server);
    Call(peer, 10000);
    peer.Put(2, CallFrame(2, kDrop, 0));
    peer.Look(2);
    Await("the end", [&server] { return server.Connections() == 0; });
    EXPECT_EQ(BytesOf(peer.RequestFile()), 0U);
    EXPECT_EQ(BytesOf(peer.AnswerFile()), 3 * kSharedPage);
    EXPECT_EQ(peer.Answers().taken.load(), 2U) << "it was not to be made again";
    EXPECT_EQ(peer.AwaitAnswer(1).arena, Pattern(10000));
}

TEST_F(ServerMemoryPages, GoBackWithMemoryThatIsGivenUp) {
    for (const std::size_t bytes : {0U, 3000U}) {
        TestServer server(Limits());
        MemoryPeer peer(server);
        Call(peer, bytes);
        AwaitGivenUp(peer);
        server.OnLoop([] { return 0; });
        EXPECT_EQ(BytesOf(peer.RequestFile()), 0U);
        EXPECT_EQ(BytesOf(peer.AnswerFile()), kSharedPage) << "its words";
        EXPECT_EQ(peer.AwaitAnswer(1).arena.size(), bytes);
    }
}

TEST_F(ServerMemoryPages, GoBackWithALargeAnswerWhenItHasBeenRead) {
    TestServer server(Limits());
    MemoryPeer peer(server);
    Call(peer, 100000);
    AwaitGivenUp(peer);
    server.OnLoop([] { return 0; });
    EXPECT_EQ(BytesOf(peer.AnswerFile()), 25 * kSharedPage);
    EXPECT_EQ(peer.AwaitAnswer(1).arena, Pattern(100000));
    // What may be older than the answer says nothing of it.
    peer.Look(1);
    server.OnLoop([] { return 0; });
    EXPECT_EQ(BytesOf(peer.AnswerFile()), 25 * kSharedPage);
    peer.Socket().Send(LookupFrame("x", 1));
    peer.Socket().ReadFrame();
    EXPECT_EQ(BytesOf(peer.AnswerFile()), kSharedPage);
    EXPECT_EQ(peer.Answers().polling.load(), kGivenUp);
}

TEST_F(ServerMemoryPages, GoBackWithALargeAnswerAtTheEnd) {
    TestServer server(Limits());
    UniqueFd answers;
    {
        MemoryPeer peer(server);
        Call(peer, 100000);
        AwaitGivenUp(peer);
        answers = CopyOf(peer.AnswerFile());
    }
    Await("the end", [&server] { return server.Connections() == 0; });
    EXPECT_EQ(BytesOf(answers), kSharedPage);
}

TEST_F(ServerMemoryPages, AreNotGivenToWhoLeavesAnswersUnread) {
    TestServer server(Patient());
    const RawSocket client = server.Greet();
    client.Send(LookupFrame("x", 0) + MemoryRequestFrame());
    Await("the answers", [&client] { return client.HasInput(); });
    server.OnLoop([] { return 0; });
    EXPECT_EQ(client.ReadFrame().prelude.kind, FrameKind::LookupAnswer);
    const FrameWithFiles refusal = ReadFrameWithFiles(client);
    EXPECT_EQ(refusal.frame.prelude.status, kStatusQuota);
    EXPECT_TRUE(refusal.files.empty());
    client.Send(MemoryRequestFrame());
    EXPECT_EQ(ReadFrameWithFiles(client).frame.prelude.status, kStatusOk);
}

/// In a process of its own: beyond such a limit the kernel ends it by a signal.
TEST_F(ServerMemoryPages, AreNotAskedForBeyondWhatFilesMayHave) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            rlimit limit{};
            limit.rlim_cur = limit.rlim_max = 65536;
            ::setrlimit(RLIMIT_FSIZE, &limit);
            try {
                MakeServiceMemory();
            } catch (const PlatformError& error) {
                ::_exit(error.what() == std::string("memory to share: File too large") ? 0 : 2);
            }
            ::_exit(1);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace zam_platform::testing
