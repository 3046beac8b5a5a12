#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "support/memory_peer.h"
#include "support/refusal.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// What a client may not do with memory, and what comes of it.
class ServerMemoryRules : public ::testing::Test {
protected:
    zam_connector::testing::RecordingLogger logger_;
    TestServer server_{{.spinCap = std::chrono::microseconds(50)}};
};

struct SlotRow {
    Bytes frame;
    std::int32_t status;
    const char* text;
};

Bytes SlotCallWith(std::size_t offset, const Bytes& replacement) {
    Bytes call = CallFrame(1, kEcho, 3);
    std::copy(replacement.begin(), replacement.end(),
              call.begin() + static_cast<std::ptrdiff_t>(offset));
    return call;
}

std::vector<SlotRow> SlotRows() {
    return {
        {Bytes(64), 19, "frame magic is 0x00000000, not 0x464d415a"},
        {SlotCallWith(0, {0}), 19, "frame magic is 0x464d4100, not 0x464d415a"},
        {SlotCallWith(4, {2}), 18, "frame version is 2, not 1"},
        {SlotCallWith(6, {0}), 19, "frame kind is 0, not 1 to 9"},
        {SlotCallWith(6, {10}), 19, "frame kind is 10, not 1 to 9"},
        {SlotCallWith(6, {1}), 19, "frame 1 of kind 1 in shared memory, not call 1"},
        {SlotCallWith(6, {2}), 19, "frame 1 of kind 2 in shared memory, not call 1"},
        {SlotCallWith(6, {5}), 19, "frame 1 of kind 5 in shared memory, not call 1"},
        {SlotCallWith(6, {7}), 19, "frame 1 of kind 7 in shared memory, not call 1"},
        {SlotCallWith(6, {9}), 19, "frame 1 of kind 9 in shared memory, not call 1"},
        {SlotCallWith(8, {0}), 19, "frame 0 of kind 4 in shared memory, not call 1"},
        {SlotCallWith(8, {2}), 19, "frame 2 of kind 4 in shared memory, not call 1"},
        {SlotCallWith(15, {0x80}), 19,
         "frame 9223372036854775809 of kind 4 in shared memory, not call 1"},
        {SlotCallWith(16, {1, 0x10}), 19, "fixed part of 4097 bytes exceeds 4096"},
        {SlotCallWith(20, {1, 0, 0x10}), 19, "arena of 1048577 bytes exceeds 1048576"},
        {SlotCallWith(20, {0xC1, 0x3F}), 19, "frame of 16385 bytes in a slot of 16384"},
        {SlotCallWith(16, {1, 0, 0, 0, 0xDF, 0x3F}), 19, "frame of 16384 bytes in a slot of 16384"},
        {SlotCallWith(20, {0, 0, 0x10}), 19, "frame of 1048640 bytes in a slot of 16384"},
        {SlotCallWith(28, {5}), 19, "unknown flags 0x4 of the frame"},
        {SlotCallWith(24, {3}), 19, "frame of a client with status 3"},
        {SlotCallWith(16, {23}), 19,
         "call with a fixed part of 23 bytes, less than the header's 24"},
        {SlotCallWith(16, {40}), 19,
         "Echo of test.endpoint: fixed part of 40 bytes, header says 32, not 32"},
        {FrameOf({.kind = FrameKind::Call, .callNumber = 1},
                 MessageBytes(MakeMessage(kEcho, 3, 0x0103))),
         19, "call to unknown interface 259"},
        {CallFrame(1, kTestOperations, 3), 19, "call to unknown operation 7 of test.endpoint"},
        {CallFrame(1, kDrop, 3, Bytes(17)), 19,
         "Drop of test.endpoint: arena of 17 bytes exceeds 16"},
    };
}

TEST_F(ServerMemoryRules, AreThoseOfFramesForWhatAClientLeavesThere) {
    for (const SlotRow& row : SlotRows()) {
        MemoryPeer peer(server_);
        peer.Put(1, row.frame);
        peer.Look(1);
        ExpectRefused(peer.Socket(), logger_, row.status, row.text);
        EXPECT_EQ(peer.Answers().taken.load(), 1U);
        EXPECT_EQ(peer.Answers().answer.load(), 0U);
    }
    EXPECT_TRUE(server_.Endpoint().Calls().empty());
}

TEST_F(ServerMemoryRules, RefuseLooksAtWhatIsNotThere) {
    struct Row {
        std::uint64_t request;
        std::uint64_t look;
        const char* text;
    };
    const Row rows[] = {
        {5, 6, "look at call 6, which is not in shared memory"},
        {0, 6, "look at call 6, which is not in shared memory"},
        {6, 7, "look at call 7, which is not in shared memory"},
        {7, 7, "look at call 7, which is not in shared memory"},
        {7, 6, "look at call 6, which is not in shared memory"},
        {4, 6, "look at call 6, which is not in shared memory"},
        {~std::uint64_t{0}, ~std::uint64_t{0},
         "look at call 18446744073709551615, which is not in shared memory"},
        {~std::uint64_t{0}, 6, "look at call 6, which is not in shared memory"},
    };
    for (const Row& row : rows) {
        MemoryPeer peer(server_);
        peer.Socket().Send(CallFrame(5, kEcho, 1));
        peer.Socket().ReadFrame();
        peer.Put(row.request, CallFrame(row.request, kEcho, 1));
        peer.Look(row.look);
        ExpectRefused(peer.Socket(), logger_, 19, row.text);
        EXPECT_EQ(peer.Answers().taken.load(), 0U);
    }
    EXPECT_EQ(server_.Endpoint().Calls().size(), std::size(rows));
}

TEST_F(ServerMemoryRules, PassOverRequestsThatWereServedWhateverTheirNumbersAre) {
    MemoryPeer peer(server_);
    peer.Call(1, CallFrame(1, kEcho, 1));
    peer.Call(2, CallFrame(2, kEcho, 1));
    for (const std::uint64_t number : {2U, 1U, 0U}) {
        peer.Requests().request.store(number);
        peer.Look(2);
    }
    peer.Socket().AwaitTaken();
    EXPECT_EQ(server_.Connections(), 1U);
    EXPECT_EQ(server_.Endpoint().Calls().size(), 2U);
}

TEST_F(ServerMemoryRules, RefuseACallBesideOneThatWaits) {
    MemoryPeer peer(server_);
    peer.Put(1, CallFrame(1, kHold, 1));
    peer.Look(1);
    server_.Endpoint().AwaitHeld(1);
    peer.Put(2, CallFrame(2, kEcho, 2));
    peer.Look(2);
    ExpectRefused(peer.Socket(), logger_, 19,
                  "call while another is in flight on the same connection");
    EXPECT_EQ(server_.Endpoint().Calls().size(), 1U);
}

struct FrameRow {
    Bytes frame;
    const char* text;
};

TEST_F(ServerMemoryRules, HoldForWhatAsksForMemory) {
    const FrameRow rows[] = {
        {LookFrame(1), "look at memory that is not shared"},
        {LookFrame(0), "look at memory that is not shared"},
        {FrameOf({.kind = FrameKind::MemoryRequest}, Bytes(1)),
         "memory request of 1 and 0 bytes, not 0 and 0"},
        {FrameOf({.kind = FrameKind::MemoryRequest}, {}, Bytes(1)),
         "memory request of 0 and 1 bytes, not 0 and 0"},
        {FrameOf({.kind = FrameKind::MemoryRequest, .flags = 1}), "unknown flags 0x1 of the frame"},
        {FrameOf({.kind = FrameKind::MemoryAnswer}, Bytes(8)), "frame kind 8 from a client"},
        {FrameOf({.kind = FrameKind::Call, .callNumber = 1, .flags = 0x100},
                 MessageBytes(MakeMessage(kEcho, 1))),
         "flags 0x100 of a call without shared memory"},
        {CallFrame(1, kHold, 1) + MemoryRequestFrame(2),
         "memory request while a call is in flight"},
    };
    for (const FrameRow& row : rows) {
        const RawSocket client = server_.Greet();
        client.Send(row.frame);
        ExpectRefused(client, logger_, 19, row.text);
    }
    const RawSocket stranger = server_.Connect();
    stranger.Send(MemoryRequestFrame());
    ExpectRefused(stranger, logger_, 19, "frame before the greeting");
}

TEST_F(ServerMemoryRules, HoldForThoseWhoHaveMemory) {
    const FrameRow rows[] = {
        {MemoryRequestFrame(), "second memory request"},
        {FrameOf({.kind = FrameKind::Look, .callNumber = 1}, Bytes(1)),
         "look of 1 and 0 bytes, not 0 and 0"},
        {FrameOf({.kind = FrameKind::Look, .callNumber = 1}, {}, Bytes(1)),
         "look of 0 and 1 bytes, not 0 and 0"},
        {FrameOf({.kind = FrameKind::Look, .callNumber = 1, .status = 1}),
         "frame of a client with status 1"},
        {FrameOf({.kind = FrameKind::Look, .callNumber = 1, .flags = 0x100}),
         "unknown flags 0x100 of the frame"},
    };
    for (const FrameRow& row : rows) {
        MemoryPeer peer(server_);
        peer.Socket().Send(row.frame);
        ExpectRefused(peer.Socket(), logger_, 19, row.text);
    }
}

/// The service copies what it checks: it serves what it has checked, or refuses it.
TEST_F(ServerMemoryRules, HoldForPagesThatChangeWhileTheyAreRead) {
    constexpr int kConnections = 21;
    constexpr std::uint64_t kCalls = 25;
    const Bytes sound = CallFrame(0, kEcho, 0x1111111111111111, Bytes(600, 0x11));
    const std::vector<std::pair<std::size_t, std::uint64_t>> flips = {
        {0, ~std::uint64_t{0}},   // magic, version and kind
        {1, 3},                   // number
        {2, 0x00000FFF00000FFF},  // sizes
        {3, 0xFFFFFF00FFFFFFFF},  // status and flags
        {4, ~std::uint64_t{0}},   // the header
        {7, 0x2222222222222222},  // the value
        {60, 0x2222222222222222},
    };
    int served = 0;
    for (int round = 0; round < kConnections; ++round) {
        MemoryPeer peer(server_, static_cast<unsigned char>(round));
        std::atomic<bool> isDone{false};
        const auto [word, mask] = flips[static_cast<std::size_t>(round) % flips.size()];
        for (std::uint64_t number = 1; number <= kCalls; ++number) {
            Bytes frame = sound;
            frame[8] = static_cast<unsigned char>(number);
            peer.Put(number, frame);
            isDone = false;
            const Background flipping([&, at = word, bits = mask] {
                while (!isDone) {
                    peer.Requests().slot[at].fetch_xor(bits, std::memory_order_relaxed);
                }
            });
            const bool isSent = peer.Socket().TrySend(LookFrame(number));
            bool hasAnswer = false;
            Await("an answer or the end", [&] {
                hasAnswer = peer.Answers().answer.load() == number;
                return hasAnswer || !isSent || peer.Socket().HasInput();
            });
            isDone = true;
            if (!hasAnswer) {
                break;
            }
            ++served;
            const Frame answer = FrameIn(peer.Answers().slot);
            EXPECT_EQ(answer.prelude.callNumber, number);
            const std::uint64_t value = MessageIn(answer.fixed).value;
            EXPECT_TRUE(value == 0x1111111111111111 || value == 0x3333333333333333) << value;
        }
    }
    EXPECT_GT(served, 0);
    EXPECT_EQ(server_.Endpoint().Calls().size(), static_cast<std::size_t>(served));
    Await("the end of all", [this] { return server_.Connections() == 0; });
}

/// Looks at one's own memory while the service is away from it, without an end.
TEST_F(ServerMemoryRules, LetNobodyBeHeldUpByLooksOfAnother) {
    const MemoryPeer busy(server_);
    std::atomic<bool> isDone{false};
    const Background looking([&] {
        while (!isDone) {
            busy.Look(0);
        }
    });
    MemoryPeer peer(server_, 0x22);
    for (std::uint64_t number = 1; number <= 50; ++number) {
        EXPECT_EQ(MessageIn(peer.Call(number, CallFrame(number, kEcho, number)).fixed).value,
                  number);
    }
    isDone = true;
}

/// It is told of each answer, and reads nothing.
TEST_F(ServerMemoryRules, EndAClientThatReadsNothing) {
    TestServer server({.queuedBytesPerUser = 4096, .spinCap = std::chrono::microseconds(50)});
    MemoryPeer peer(server);
    peer.Socket().ShrinkBuffers();
    bool isThere = true;
    for (std::uint64_t number = 1; isThere && number < 100000; ++number) {
        peer.Put(number, CallFrame(number, kEcho, number));
        peer.Requests().waiting.store(0);
        isThere = peer.Socket().TrySend(LookFrame(number));
        if (isThere) {
            Await("an answer or the end", [&] {
                return peer.Answers().answer.load() == number || server.Connections() == 0;
            });
        }
    }
    EXPECT_FALSE(isThere);
    EXPECT_EQ(server.Connections(), 0U);
}

}  // namespace
}  // namespace zam_platform::testing
