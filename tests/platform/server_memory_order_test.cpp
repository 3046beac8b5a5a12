#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "support/descriptors.h"
#include "support/memory_peer.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// What stands around a request for memory on its connection.
class ServerMemoryOrder : public ::testing::Test {
protected:
    static void ExpectEcho(const RawSocket& socket, std::uint64_t number, std::uint64_t value) {
        const Frame answer = socket.ReadFrame();
        EXPECT_EQ(answer.prelude.kind, FrameKind::Answer);
        EXPECT_EQ(answer.prelude.callNumber, number);
        EXPECT_EQ(MessageIn(answer.fixed).value, value);
    }

    static void ExpectMemory(const RawSocket& socket, std::uint64_t number) {
        const FrameWithFiles grant = ReadFrameWithFiles(socket);
        EXPECT_EQ(grant.frame.prelude.kind, FrameKind::MemoryAnswer);
        EXPECT_EQ(grant.frame.prelude.callNumber, number);
        EXPECT_EQ(grant.files.size(), 2U);
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_{{.spinCap = std::chrono::microseconds(50)}};
};

TEST_F(ServerMemoryOrder, IsThatOfTheFramesThatAClientSendsAhead) {
    const RawSocket client = server_.Greet();
    client.Send(CallFrame(1, kEcho, 11) + LookupFrame("?", 2));
    ExpectEcho(client, 1, 11);
    EXPECT_EQ(client.ReadFrame().prelude.kind, FrameKind::LookupAnswer);
    client.Send(MemoryRequestFrame(2) + CallFrame(3, kEcho, 13) +
                CallFrame(4, kEcho, 14, Pattern(20000)) + CallFrame(5, kHold, 15));
    ExpectMemory(client, 2);
    ExpectEcho(client, 3, 13);
    ExpectEcho(client, 4, 14);
    server_.Endpoint().AwaitHeld(1);
    EXPECT_FALSE(client.HasInput());
    {
        const Background worker([this] { server_.Endpoint().ReleaseAll(); });
    }
    ExpectEcho(client, 5, 15);
    EXPECT_TRUE(logger_.Records().empty());
}

/// The files come with a frame's first byte, which is not to come before what waits in the queue.
TEST_F(ServerMemoryOrder, LeavesTheSocketToWhoAsksBehindAnAnswerThatIsNotTaken) {
    constexpr std::uint32_t kLarge = kMaxArenaBytes;
    const std::set<int> before = OpenDescriptors();
    const std::size_t mappings = SharedMappings();
    {
        const RawSocket client = server_.Greet();
        client.ShrinkBuffers();
        for (const std::uint64_t number : {1U, 2U}) {
            client.Send(CallFrame(number, kFill, kLarge) + MemoryRequestFrame(number) +
                        CallFrame(number + 10, kEcho, 20 + number));
            const Frame large = client.ReadFrame();
            EXPECT_EQ(large.prelude.callNumber, number);
            EXPECT_TRUE(large.arena == Pattern(kLarge));
            EXPECT_EQ(ToHex(client.Read(kPreludeBytes)),
                      ToHex(StatusFrame(FrameKind::MemoryAnswer, number, kStatusQuota)));
            ExpectEcho(client, number + 10, 20 + number);
        }
        EXPECT_EQ(SharedMappings(), mappings);
        client.Send(MemoryRequestFrame(12));
        ExpectMemory(client, 12);
        // Every place is free but its own.
        std::deque<MemoryPeer> others;
        while (others.size() < 7) {
            others.emplace_back(server_, static_cast<unsigned char>(others.size()));
        }
        for (MemoryPeer& other : others) {
            EXPECT_EQ(MessageIn(other.Call(1, CallFrame(1, kEcho, 5)).fixed).value, 5U);
        }
    }
    Await("their ends", [this] { return server_.Connections() == 0; });
    EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(ServerMemoryOrder, GivesNoneToWhoLeavesAnswersUnread) {
    const RawSocket client = server_.Greet();
    client.Send(LookupFrame("x", 0) + MemoryRequestFrame());
    Await("the answers", [&client] { return client.HasInput(); });
    server_.OnLoop([] { return 0; });
    EXPECT_EQ(client.ReadFrame().prelude.kind, FrameKind::LookupAnswer);
    const FrameWithFiles refusal = ReadFrameWithFiles(client);
    EXPECT_EQ(refusal.frame.prelude.status, kStatusQuota);
    EXPECT_TRUE(refusal.files.empty());
    client.Send(MemoryRequestFrame());
    EXPECT_EQ(ReadFrameWithFiles(client).frame.prelude.status, kStatusOk);
}

TEST_F(ServerMemoryOrder, IsThatOfEachConnectionWhoseCallsWaitForAWorker) {
    constexpr std::uint64_t kConnections = 12;  // more than there are places
    struct Waiting {
        std::uint64_t value;
        Responder responder;
    };
    std::mutex mutex;
    std::vector<Waiting> waiting;  // guarded by mutex
    server_.Endpoint().Custom([&](const Request& request, Responder responder) {
        const std::lock_guard lock(mutex);
        waiting.push_back({request.As<TestMessage>().value, std::move(responder)});
    });
    const Bytes further = CallFrame(2, kEcho, 2);
    std::vector<RawSocket> clients;
    for (std::uint64_t index = 0; index < kConnections; ++index) {
        clients.push_back(server_.Greet(static_cast<unsigned char>(index)));
        clients.back().Send(MemoryRequestFrame(0) + CallFrame(1, kCustom, 100 + index) +
                            Head(further, 20));
    }
    Await("the calls", [&] {
        const std::lock_guard lock(mutex);
        return waiting.size() == kConnections;
    });
    {
        const Background worker([&] {
            const std::lock_guard lock(mutex);
            for (; !waiting.empty(); waiting.pop_back()) {
                TestMessage message{};
                message.value = 100 + waiting.back().value;
                waiting.back().responder.Answer(message);
            }
        });
    }
    std::size_t granted = 0;
    for (std::uint64_t index = 0; index < kConnections; ++index) {
        SCOPED_TRACE(index);
        const RawSocket& client = clients[index];
        granted += ReadFrameWithFiles(client).files.size() == 2 ? 1U : 0U;
        ExpectEcho(client, 1, 200 + index);
        client.Send(Tail(further, 20));
        ExpectEcho(client, 2, 2);
    }
    EXPECT_GE(granted, 8U);
    EXPECT_TRUE(logger_.Records().empty());
}

}  // namespace
}  // namespace zam_platform::testing
