#include "server/lent_memory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "shared/shared_file.h"
#include "support/memory_peer.h"
#include "support/require.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

constexpr uid_t kUser = 1000;
constexpr uid_t kOther = 1001;

/// Both files of memory, as clients get them.
struct ClientFiles {
    UniqueFd requests;
    UniqueFd answers;
};

/// Lends memory, of which the client has the files.
ClientFiles LendTo(LentMemory& lent, uid_t user) {
    ServiceMemory memory = MakeServiceMemory();
    ClientFiles files{std::move(memory.requestsForClient), std::move(memory.answersForClient)};
    lent.Add(user, std::move(memory.requestFile), std::move(memory.answerFile));
    return files;
}

TEST(LentMemoryTest, HasAPartOfTheDescriptorsAndNoMoreThan256) {
    const std::pair<rlim_t, std::size_t> rows[] = {
        {0, 2}, {64, 2}, {256, 8}, {1024, 32}, {8192, 256}, {65536, 256}, {RLIM_INFINITY, 256}};
    for (const auto& [descriptors, most] : rows) {
        EXPECT_EQ(LentMemory(descriptors).Most(), most) << descriptors;
    }
}

TEST(LentMemoryTest, IsNoneWhenNobodyHoldsIt) {
    LentMemory lent(1024);
    LendTo(lent, kUser);
    EXPECT_EQ(lent.Size(), 1U) << "the files are closed behind that";
    EXPECT_TRUE(lent.HasRoom(kUser, 0, 0));
    EXPECT_EQ(lent.Size(), 0U);
    ServiceMemory memory = MakeServiceMemory();
    memory.requestsForClient.Reset();
    memory.answersForClient.Reset();
    lent.Add(kUser, std::move(memory.requestFile), std::move(memory.answerFile));
    EXPECT_EQ(lent.Size(), 0U);
}

TEST(LentMemoryTest, IsHeldByWhoeverHasEitherFileInAnyWay) {
    LentMemory lent(1024);
    const auto expectHeldUntil = [&lent](const char* what, const auto& letGo) {
        SCOPED_TRACE(what);
        lent.HasRoom(kUser, 0, 0);
        EXPECT_EQ(lent.Size(), 1U);
        letGo();
        lent.HasRoom(kUser, 0, 0);
        EXPECT_EQ(lent.Size(), 0U);
    };
    ClientFiles files = LendTo(lent, kUser);
    files.answers.Reset();
    expectHeldUntil("requests", [&] { files.requests.Reset(); });

    files = LendTo(lent, kUser);
    files.requests.Reset();
    expectHeldUntil("answers", [&] { files.answers.Reset(); });

    files = LendTo(lent, kUser);
    UniqueFd copy(::dup(files.answers.Get()));
    files = {};
    expectHeldUntil("a copy", [&] { copy.Reset(); });

    files = LendTo(lent, kUser);
    ClientMemory mapped = MapClientMemory(files.requests, files.answers);
    files = {};
    expectHeldUntil("mappings", [&] { mapped = {}; });

    files = LendTo(lent, kUser);
    UniqueFd again(::open(("/proc/self/fd/" + std::to_string(files.requests.Get())).c_str(),
                          O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(again);
    files = {};
    expectHeldUntil("opened anew", [&] { again.Reset(); });

    std::pair<RawSocket, RawSocket> ends = MakePair();
    files = LendTo(lent, kUser);
    SendWithFiles(ends.second, Bytes(1), {files.requests.Get(), files.answers.Get()});
    files = {};
    expectHeldUntil("on their way", [&] { ends.first.Close(); });
}

TEST(LentMemoryTest, IsHalfOfAUsersAtMost) {
    LentMemory lent(320);
    ASSERT_EQ(lent.Most(), 10U);
    std::vector<ClientFiles> files;
    for (int index = 0; index < 4; ++index) {
        files.push_back(LendTo(lent, kUser));
    }
    EXPECT_TRUE(lent.HasRoom(kUser, 0, 0));
    EXPECT_FALSE(lent.HasRoom(kUser, 1, 1)) << "what is in use may be lent, too";
    EXPECT_TRUE(lent.HasRoom(kOther, 4, 5));
    EXPECT_FALSE(lent.HasRoom(kOther, 4, 6)) << "of all";
    files.push_back(LendTo(lent, kUser));
    EXPECT_FALSE(lent.HasRoom(kUser, 0, 0));
    EXPECT_TRUE(lent.HasRoom(kOther, 0, 4));
    files.pop_back();
    EXPECT_TRUE(lent.HasRoom(kUser, 0, 0));
}

TEST(LentMemoryTest, IsLookedAtPieceByPiece) {
    LentMemory lent(65536);
    std::deque<ClientFiles> files;
    for (int index = 0; index < 20; ++index) {
        files.push_back(LendTo(lent, kUser));
    }
    // The first half comes back.
    files.erase(files.begin(), files.begin() + 10);
    std::size_t before = lent.Size();
    EXPECT_EQ(before, 20U);
    for (int request = 0; request < 4; ++request) {
        EXPECT_TRUE(lent.HasRoom(kOther, 0, 0));
        EXPECT_LE(before - lent.Size(), 8U);
        before = lent.Size();
    }
    EXPECT_EQ(lent.Size(), 10U);
    files.clear();
    lent.HasRoom(kOther, 0, 0);
    lent.HasRoom(kOther, 0, 0);
    EXPECT_EQ(lent.Size(), 0U);
}

/// A limit of this process's descriptors.
class ScopedDescriptors {
public:
    explicit ScopedDescriptors(rlim_t most) {
        zam_test::Require(::getrlimit(RLIMIT_NOFILE, &before_) == 0, "getrlimit");
        rlimit limit = before_;
        limit.rlim_cur = most;
        zam_test::Require(::setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit");
    }
    ScopedDescriptors(const ScopedDescriptors&) = delete;
    ScopedDescriptors& operator=(const ScopedDescriptors&) = delete;
    ~ScopedDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

/// Of 1024 descriptors 32 pairs of files may be kept, 16 by one user.
TEST(LentMemoryOfServer, IsRefusedToWhoKeepsWhatItWasGiven) {
    const zam_connector::testing::RecordingLogger logger;
    const ScopedDescriptors few(1024);
    TestServer server({.spinCap = std::chrono::microseconds(50)});
    std::vector<UniqueFd> kept;
    for (unsigned char index = 0; index < 16; ++index) {
        const MemoryPeer peer(server, index);
        kept.emplace_back(::dup(peer.AnswerFile().Get()));
    }
    Await("their ends", [&server] { return server.Connections() == 0; });
    const RawSocket client = server.Greet(0x77);
    client.Send(MemoryRequestFrame());
    EXPECT_EQ(ReadFrameWithFiles(client).frame.prelude.status, kStatusQuota);
    kept.pop_back();
    // Each request looks at some of what was lent.
    Await("room", [&client] {
        client.Send(MemoryRequestFrame());
        return ReadFrameWithFiles(client).frame.prelude.status == kStatusOk;
    });
    EXPECT_TRUE(logger.Records().empty());
}

TEST(LentMemoryOfServer, IsNotGivenToWhoLeavesAnswersUnread) {
    TestServer server({.spinCap = std::chrono::microseconds(50)});
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

}  // namespace
}  // namespace zam_platform::testing
