#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/memory_peer.h"
#include "support/require.h"
#include "zam_connector_testing/recording_logger.h"

#ifndef F_SEAL_FUTURE_WRITE
#define F_SEAL_FUTURE_WRITE 0x0010
#endif

namespace zam_platform::testing {
namespace {

constexpr ServerLimits kWithMemory{.spinCap = std::chrono::microseconds(50)};

/// Calls whose requests a client leaves in memory, and the files that it has of the server. The
/// client is on no CPU that it tells, so that its requests are looked at when it says so.
class ServerMemory : public ::testing::Test {
protected:
    void ExpectNothingIsToldBefore(const MemoryPeer& peer, const RawSocket& socket) {
        socket.Send(LookupFrame("x", peer.Answers().answer.load()));
        EXPECT_EQ(socket.ReadFrame().prelude.kind, FrameKind::LookupAnswer);
    }

    /// Tells what becomes of the answers to `kCustom`: 1 taken, 0 lost.
    void WatchAnswers(std::atomic<int>& told) {
        server_.Endpoint().Custom([&told](const Request&, Responder responder) {
            responder.Watch([&told](bool wasTaken) { told = wasTaken ? 1 : 0; });
            TestMessage message{};
            responder.Answer(message);
        });
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_{kWithMemory};
};

TEST_F(ServerMemory, IsOfferedAndGrantedInTheseBytes) {
    const RawSocket client = server_.Greet();
    client.Send(LookupFrame("?", 0));
    EXPECT_EQ(client.ReadFrame().fixed, (Bytes{0xFF, 0xFF, 3, 0, 0, 0, 0, 0}));
    EXPECT_EQ(ToHex(MemoryRequestFrame(0x0102, {.gap = 7, .cpu = 0xFFFE})),
              "5A 41 4D 46 01 00 07 00 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 07 FE FF");
    client.Send(MemoryRequestFrame(0x0102, {.gap = 7, .cpu = 0xFFFE}));
    const FrameWithFiles grant = ReadFrameWithFiles(client);
    EXPECT_EQ(grant.frame.prelude.kind, FrameKind::MemoryAnswer);
    EXPECT_EQ(grant.frame.prelude.callNumber, 0x0102U);
    EXPECT_EQ(grant.frame.prelude.status, kStatusOk);
    EXPECT_EQ(grant.frame.prelude.flags, 0U);
    EXPECT_EQ(grant.frame.fixed, (Bytes{0, 0x40, 0, 0, 0, 0, 2, 0}));
    EXPECT_TRUE(grant.frame.arena.empty());
    EXPECT_EQ(grant.files.size(), 2U);
}

TEST_F(ServerMemory, HasFilesOfFixedSizesThatNobodyElseMayWriteAnswersTo) {
    const MemoryPeer peer(server_);
    struct Row {
        int file;
        off_t bytes;
        int seals;
    };
    constexpr int kSize = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
    const Row rows[] = {
        {peer.RequestFile().Get(), 20480, kSize},
        {peer.AnswerFile().Get(), 135168, kSize | F_SEAL_FUTURE_WRITE},
    };
    for (const Row& row : rows) {
        struct stat status {};
        ASSERT_EQ(::fstat(row.file, &status), 0);
        EXPECT_EQ(status.st_size, row.bytes);
        EXPECT_EQ(::fcntl(row.file, F_GET_SEALS) & row.seals, row.seals);
        EXPECT_EQ(::ftruncate(row.file, 0), -1);
        EXPECT_EQ(::ftruncate(row.file, 2 * row.bytes), -1);
        EXPECT_EQ(::fallocate(row.file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, 4096),
                  row.file == peer.AnswerFile().Get() ? -1 : 0);
        EXPECT_EQ(::fcntl(row.file, F_ADD_SEALS, F_SEAL_WRITE), -1);
    }
}

std::size_t BytesThere(const UniqueFd& file) {
    struct stat status {};
    zam_test::Require(::fstat(file.Get(), &status) == 0, "fstat");
    return static_cast<std::size_t>(status.st_blocks) * 512;
}

TEST_F(ServerMemory, HasNoPageButTheFirstsBeforeItsClientTouchesThem) {
    const RawSocket client = server_.Greet();
    client.Send(MemoryRequestFrame());
    const FrameWithFiles grant = ReadFrameWithFiles(client);
    EXPECT_LE(BytesThere(grant.files.at(0)), kSharedPage);
    EXPECT_LE(BytesThere(grant.files.at(1)), kSharedPage);
    const ClientMemory memory = MapClientMemory(grant.files[0], grant.files[1]);
    EXPECT_EQ(BytesThere(grant.files[0]), kRequestFileBytes);
    EXPECT_EQ(BytesThere(grant.files[1]), kAnswerFileBytes);
}

/// Pages that the service brought in would be its own for as long as a client kept their file.
TEST_F(ServerMemory, GetsNoAnswersBeyondThePagesThatItsClientHasTouched) {
    constexpr std::size_t kMost =
        kSharedPage - offsetof(AnswerPages, slot) - kPreludeBytes - sizeof(TestMessage);
    for (const std::size_t touched :
         {std::size_t{0}, kSharedPage, 17 * kSharedPage, kAnswerFileBytes - kSharedPage}) {
        MemoryPeer peer(server_.Greet(), touched);
        std::uint64_t number = 0;
        const auto expectFilled = [&](std::size_t size, bool byMemory) {
            ++number;
            peer.Put(number, CallFrame(number, kFill, size));
            peer.Look(number);
            const Frame answer = byMemory ? peer.AwaitAnswer(number) : peer.Socket().ReadFrame();
            EXPECT_EQ(answer.prelude.callNumber, number);
            EXPECT_TRUE(answer.arena == Pattern(size)) << touched << ' ' << size;
        };
        expectFilled(kMost, true);
        expectFilled(kMost + 1, false);
        expectFilled(kMost + 50000, false);
        EXPECT_EQ(BytesThere(peer.AnswerFile()), std::max(touched, kSharedPage));
        peer.Touch(kAnswerFileBytes);
        expectFilled(kMost + 50000, true);
        expectFilled(std::size_t{1} << 20U, false);
    }
}

void ExpectNotWritable(int file) {
    constexpr int kBoth = PROT_READ | PROT_WRITE;
    EXPECT_EQ(::mmap(nullptr, 4096, kBoth, MAP_SHARED, file, 0), MAP_FAILED);
    EXPECT_EQ(::mmap(nullptr, 4096, PROT_WRITE, MAP_SHARED, file, 0), MAP_FAILED);
    EXPECT_EQ(::pwrite(file, "x", 1, 0), -1);
    void* const page = ::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
    ASSERT_NE(page, MAP_FAILED);
    EXPECT_EQ(::mprotect(page, 4096, kBoth), -1);
    ::munmap(page, 4096);
}

TEST_F(ServerMemory, DoesNotLetItsAnswersBeWrittenByAnyWay) {
    MemoryPeer peer(server_);
    ExpectNotWritable(peer.AnswerFile().Get());
    const std::string path = "/proc/self/fd/" + std::to_string(peer.AnswerFile().Get());
    for (const int flags : {O_RDWR, O_WRONLY, O_RDONLY, O_RDWR | O_TRUNC}) {
        const UniqueFd again(::open(path.c_str(), flags | O_CLOEXEC));
        if (again && flags == O_RDWR) {
            ExpectNotWritable(again.Get());
        } else if (again) {
            EXPECT_EQ(::pwrite(again.Get(), "x", 1, 0), -1);
        }
    }
    EXPECT_EQ(peer.Call(1, CallFrame(1, kEcho, 9)).fixed, MessageBytes(MakeMessage(kEcho, 9)));
}

TEST_F(ServerMemory, ServesARequestThatALookTellsOf) {
    MemoryPeer peer(server_);
    for (const std::size_t size : {0U, 1U, 7U, 8U, 9U, 1000U, 16319U, 16320U}) {
        const std::uint64_t number = size + 1;
        peer.Socket().Send(LookupFrame("x", number - 1));
        peer.Socket().ReadFrame();
        const Frame answer = peer.Call(number, CallFrame(number, kEcho, size, Pattern(size)));
        EXPECT_EQ(answer.prelude.kind, FrameKind::Answer);
        EXPECT_EQ(answer.prelude.callNumber, number);
        EXPECT_EQ(answer.prelude.status, 0);
        EXPECT_EQ(MessageIn(answer.fixed).value, size);
        EXPECT_EQ(answer.arena, Pattern(size));
        EXPECT_EQ(peer.Answers().taken.load(), number);
        EXPECT_FALSE(peer.Socket().HasInput()) << "a client that looks need not be told";
    }
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(ServerMemory, TellsTheClientThatDoesNotLook) {
    MemoryPeer peer(server_);
    for (const std::uint64_t waiting : {std::uint64_t{0}, std::uint64_t{1}}) {
        const std::uint64_t number = waiting + 2;
        peer.Socket().Send(LookupFrame("x", number - 1));
        peer.Socket().ReadFrame();
        peer.Put(number, CallFrame(number, kEcho, 4));
        peer.Requests().waiting.store(waiting);
        peer.Look(number);
        EXPECT_EQ(ToHex(peer.Socket().Read(kPreludeBytes)), ToHex(LookFrame(number)));
        EXPECT_EQ(peer.Answers().answer.load(), number);
        EXPECT_EQ(MessageIn(FrameIn(peer.Answers().slot).fixed).value, 4U);
    }
}

TEST_F(ServerMemory, DoesNotTellAClientThatLooksForLaterAnswers) {
    MemoryPeer peer(server_);
    for (const std::uint64_t ahead : {std::uint64_t{2}, ~std::uint64_t{0}}) {
        const std::uint64_t number = peer.Answers().answer.load() + 1;
        peer.Put(number, CallFrame(number, kEcho, 4));
        peer.Requests().waiting.store(ahead);
        peer.Look(number);
        peer.AwaitAnswer(number);
        ExpectNothingIsToldBefore(peer, peer.Socket());
    }
}

TEST_F(ServerMemory, TakesCallsBothWaysInTurns) {
    MemoryPeer peer(server_);
    for (std::uint64_t number = 1; number <= 20; ++number) {
        const Bytes call = CallFrame(number, kEcho, 100 + number, Pattern(number * 50));
        if (number % 3 == 0) {
            peer.Socket().Send(call);
            EXPECT_EQ(ToHex(MessageBytes(MessageIn(peer.Socket().ReadFrame().fixed))),
                      ToHex(MessageBytes(MakeMessage(kEcho, 100 + number))));
        } else {
            EXPECT_EQ(MessageIn(peer.Call(number, call).fixed).value, 100 + number);
        }
    }
    EXPECT_EQ(server_.Endpoint().Calls().size(), 20U);
}

TEST_F(ServerMemory, FailsACallThereAsOnTheSocket) {
    MemoryPeer peer(server_);
    Frame answer = peer.Call(1, CallFrame(1, kFail, 77));
    EXPECT_EQ(answer.prelude.status, 77);
    EXPECT_TRUE(answer.fixed.empty());
    answer = peer.Call(2, CallFrame(2, kForget, 0));
    EXPECT_EQ(answer.prelude.status, kStatusUnanswered);
    EXPECT_EQ(MessageIn(peer.Call(3, CallFrame(3, kEcho, 5)).fixed).value, 5U);
}

TEST_F(ServerMemory, EndsTheConnectionOfACallThatItsHandlerDrops) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kDrop, 5));
    peer.Look(1);
    EXPECT_TRUE(peer.Socket().EndsNow());
    EXPECT_EQ(peer.Answers().taken.load(), 1U);
    EXPECT_EQ(peer.Answers().answer.load(), 0U);
    Await("the break", [this] { return server_.LostCalls().size() == 1; });
    EXPECT_EQ(server_.LostCalls()[0].operation, kDrop);
    EXPECT_EQ(server_.LostCalls()[0].FirstField<std::uint64_t>(), 5U);
}

TEST_F(ServerMemory, TellsThatARequestIsTakenBeforeItsHandlerRuns) {
    std::optional<MemoryPeer> peer;
    std::atomic<std::uint64_t> taken{0};
    std::atomic<std::uint64_t> answered{1};
    server_.Endpoint().Custom([&](const Request&, Responder responder) {
        taken = peer->Answers().taken.load();
        answered = peer->Answers().answer.load();
        TestMessage message{};
        responder.Answer(message);
    });
    peer.emplace(server_);
    peer->Call(1, CallFrame(1, kCustom, 0));
    EXPECT_EQ(taken, 1U);
    EXPECT_EQ(answered, 0U);
}

TEST_F(ServerMemory, AnswersByTheSocketWhatDoesNotFitTheSlot) {
    MemoryPeer peer(server_);
    std::uint64_t number = 0;
    for (const std::uint64_t size : {std::uint64_t{131008}, std::uint64_t{131009},
                                     std::uint64_t{131016}, std::uint64_t{1} << 20U}) {
        ++number;
        peer.Put(number, CallFrame(number, kFill, size));
        peer.Look(number);
        const bool fits = size <= 131008;
        const Frame answer = fits ? peer.AwaitAnswer(number) : peer.Socket().ReadFrame();
        EXPECT_EQ(answer.prelude.callNumber, number);
        EXPECT_TRUE(answer.arena == Pattern(size)) << size;
        EXPECT_EQ(peer.Answers().answer.load(), 1U);
        EXPECT_EQ(peer.Answers().taken.load(), number);
    }
}

TEST_F(ServerMemory, AnswersByTheSocketWhatIsGivenLater) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kHold, 6));
    peer.Look(1);
    server_.Endpoint().AwaitHeld(1);
    server_.OnLoop([this] {
        server_.Endpoint().ReleaseAll();
        return 0;
    });
    EXPECT_EQ(MessageIn(peer.Socket().ReadFrame().fixed).value, 6U);
    peer.Put(2, CallFrame(2, kHold, 7));
    peer.Look(2);
    server_.Endpoint().AwaitHeld(1);
    server_.Endpoint().ReleaseAll();
    EXPECT_EQ(MessageIn(peer.Socket().ReadFrame().fixed).value, 7U) << "from another thread";
    EXPECT_EQ(peer.Answers().answer.load(), 0U);
    EXPECT_EQ(MessageIn(peer.Call(3, CallFrame(3, kEcho, 8)).fixed).value, 8U);
}

TEST_F(ServerMemory, AnswersByTheSocketWhatAnotherThreadGivesWhileTheHandlerRuns) {
    server_.Endpoint().Custom([](const Request&, Responder responder) {
        std::thread([&responder] {
            TestMessage message{};
            message.value = 12;
            responder.Answer(message);
        }).join();
    });
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kCustom, 0));
    peer.Look(1);
    EXPECT_EQ(MessageIn(peer.Socket().ReadFrame().fixed).value, 12U);
    EXPECT_EQ(peer.Answers().answer.load(), 0U);
}

TEST_F(ServerMemory, AnswersByTheSocketWhatIsWatchedAndHeedsNoStaleLook) {
    std::atomic<int> told{-1};
    WatchAnswers(told);
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kCustom, 0));
    peer.Look(1);
    EXPECT_EQ(peer.Socket().ReadFrame().prelude.callNumber, 1U);
    peer.Look(1);
    peer.Look(0);
    peer.Socket().AwaitTaken();
    server_.Connections();
    EXPECT_EQ(told, -1) << "a look that came late is not the client's next frame";
    peer.Call(2, CallFrame(2, kEcho, 0));
    EXPECT_EQ(told, 1);
}

TEST_F(ServerMemory, TellsThatAWatchedAnswerWasLostWithIt) {
    std::atomic<int> told{-1};
    WatchAnswers(told);
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kCustom, 0));
    peer.Look(1);
    Await("the answer", [&peer] { return peer.Socket().HasInput(); });
    peer.Socket().Close();
    Await("what became of it", [&told] { return told == 0; });
}

TEST_F(ServerMemory, PassesOverLooksAtWhatWasServed) {
    MemoryPeer peer(server_);
    peer.Socket().Send(CallFrame(7, kEcho, 1));
    peer.Socket().ReadFrame();
    for (const std::uint64_t number : {7U, 6U, 1U, 0U, 7U}) {
        peer.Look(number);
    }
    peer.Call(8, CallFrame(8, kEcho, 1));
    peer.Look(8);
    peer.Look(8);
    ExpectNothingIsToldBefore(peer, peer.Socket());
    EXPECT_EQ(server_.Endpoint().Calls().size(), 2U);
    EXPECT_TRUE(logger_.Records().empty());
}

}  // namespace
}  // namespace zam_platform::testing
