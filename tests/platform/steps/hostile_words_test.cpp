#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "steps/stepping_server.h"
#include "support/memory_peer.h"
#include "support/refusal.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// How the service comes to what a client has left there: no look frame tells of it.
enum class FoundBy {
    Poll,
    LastLook,        ///< behind a poll whose time is over
    LookOnYielding,  ///< to somebody else who needs the CPU
};

/// What a hostile client leaves where the service looks by itself.
class HostileWords : public ::testing::TestWithParam<FoundBy> {
protected:
    HostileWords() { stage_.PollFor(kPollsForEver); }

    /// A call of a client on another CPU, behind which the service looks for the next.
    static Bytes HotCall(std::uint64_t number, std::uint64_t value = 1, const Bytes& arena = {}) {
        return FrameOf({.kind = FrameKind::Call, .callNumber = number, .flags = kElsewhere.Flags()},
                       MessageBytes(MakeMessage(kEcho, value)), arena);
    }

    static Bytes HotCallWith(std::uint64_t number, std::size_t offset, unsigned char byte) {
        Bytes call = HotCall(number);
        call[offset] = byte;
        return call;
    }

    static bool IsLookedFor(const MemoryPeer& peer) {
        return peer.Answers().polling.load() == kPolling;
    }

    /// A client that has made call 1 by the socket and call 2 through memory, where the service
    /// found it by itself.
    MemoryPeer NewHotPeer(unsigned char tokenByte = 0x11) {
        MemoryPeer peer(*server_, tokenByte);
        peer.Socket().Send(HotCall(1));
        peer.Socket().ReadFrame();
        EXPECT_TRUE(IsLookedFor(peer));
        peer.Put(2, HotCall(2));
        peer.AwaitAnswer(2);
        sound_ += 2;
        return peer;
    }

    /// Another client makes a call; it looks as any does.
    void ExpectOtherIsServed() {
        ++otherNumber_;
        other_.Put(otherNumber_, HotCall(otherNumber_, otherNumber_));
        if (!IsLookedFor(other_)) {
            other_.Look(otherNumber_);
        }
        EXPECT_EQ(MessageIn(other_.AwaitAnswer(otherNumber_).fixed).value, otherNumber_);
        EXPECT_FALSE(other_.Socket().HasInput());
        ++sound_;
    }

    /// Has the service stop before it says that it looks no more, and find what `leave` leaves.
    template <typename Function>
    void LeaveForIt(MemoryPeer& peer, Function leave) {
        if (GetParam() == FoundBy::Poll) {
            return leave();
        }
        stage_.Go(Side::Service, Stage::BitOf(Step::ServiceTells));
        if (GetParam() == FoundBy::LastLook) {
            stage_.PollFor(kPollsOnce);
            peer.Put(3, HotCall(3));
            peer.AwaitAnswer(3);
            ++sound_;
        } else {
            stage_.Preempt(Side::Service, true);
        }
        AwaitSoon("its last word", [this] { return stage_.IsHeld(Side::Service); });
        EXPECT_TRUE(IsLookedFor(peer));
        leave();
        stage_.Preempt(Side::Service, false);
        stage_.PollFor(kPollsForEver);
        stage_.Go(Side::Service);
    }

    std::uint64_t LastNumber() const { return GetParam() == FoundBy::LastLook ? 3 : 2; }

    void ExpectOnlySoundCallsWereServed() {
        EXPECT_EQ(server_->Endpoint().Calls().size(), sound_);
        EXPECT_EQ(server_->Connections(), 1U);
    }

    Stage& stage_ = Stage::Get();
    zam_connector::testing::RecordingLogger logger_;
    SteppingServer server_;
    std::size_t sound_ = 0;  ///< calls that were made by the rules
    MemoryPeer other_{*server_, 0x99};
    std::uint64_t otherNumber_ = 0;
};

TEST_P(HostileWords, EndTheirConnectionWhenTheyAreNoNextNumber) {
    const std::uint64_t last = LastNumber();
    for (const std::uint64_t number :
         {last + 2, last + 1000, std::uint64_t{1}, std::uint64_t{0}, ~std::uint64_t{0},
          (last + 1) | std::uint64_t{1} << 63U, (last + 1) | std::uint64_t{1} << 32U}) {
        MemoryPeer peer = NewHotPeer();
        LeaveForIt(peer, [&] { peer.Put(number, HotCall(number)); });
        ExpectRefused(peer.Socket(), logger_, kStatusBadRequest,
                      "request " + std::to_string(number) + " in shared memory, not " +
                          std::to_string(last + 1));
        EXPECT_EQ(peer.Answers().taken.load(), last);
        ExpectOtherIsServed();
    }
    ExpectOnlySoundCallsWereServed();
}

TEST_P(HostileWords, EndTheirConnectionWhenTheyAreNoFrameOfThatNumber) {
    const std::uint64_t next = LastNumber() + 1;
    const std::string name = std::to_string(next);
    struct Row {
        Bytes frame;
        std::int32_t status;
        std::string text;
    };
    const Row rows[] = {
        {Bytes(64), 19, "frame magic is 0x00000000, not 0x464d415a"},
        {HotCallWith(next, 4, 2), 18, "frame version is 2, not 1"},
        {HotCallWith(next, 6, 7), 19,
         "frame " + name + " of kind 7 in shared memory, not call " + name},
        {HotCallWith(next, 8, 9), 19, "frame 9 of kind 4 in shared memory, not call " + name},
        {HotCallWith(next, 17, 0x20), 19, "fixed part of 8224 bytes exceeds 4096"},
        {HotCallWith(next, 22, 1), 19, "frame of 65600 bytes in a slot of 16384"},
        {HotCallWith(next, 16, 40), 19,
         "Echo of test.endpoint: fixed part of 40 bytes, header says 32, not 32"},
        {HotCallWith(next, 24, 1), 19, "frame of a client with status 1"},
        {HotCallWith(next, 28, 2), 19, "unknown flags 0x2 of the frame"},
    };
    for (const Row& row : rows) {
        MemoryPeer peer = NewHotPeer();
        LeaveForIt(peer, [&] { peer.Put(next, row.frame); });
        ExpectRefused(peer.Socket(), logger_, row.status, row.text);
        EXPECT_EQ(peer.Answers().taken.load(), next);
        ExpectOtherIsServed();
    }
    ExpectOnlySoundCallsWereServed();
}

/// One that went by the socket is served already.
TEST_P(HostileWords, EndTheirConnectionWhenTheyRepeatACallOfTheSocket) {
    const std::uint64_t last = LastNumber() + 1;
    MemoryPeer peer = NewHotPeer();
    if (GetParam() != FoundBy::LastLook) {
        peer.Socket().Send(HotCall(last));
        peer.Socket().ReadFrame();
        ++sound_;
        LeaveForIt(peer, [&] { peer.Put(last, HotCall(last, 5)); });
    } else {
        stage_.Go(Side::Service, Stage::BitOf(Step::ServiceTells));
        stage_.PollFor(kPollsOnce);
        peer.Socket().Send(HotCall(3));
        peer.Socket().ReadFrame();
        ++sound_;
        AwaitSoon("its last word", [this] { return stage_.IsHeld(Side::Service); });
        peer.Put(3, HotCall(3, 5));
        stage_.PollFor(kPollsForEver);
        stage_.Go(Side::Service);
    }
    ExpectRefused(peer.Socket(), logger_, kStatusBadRequest, "request 3 in shared memory, not 4");
    ExpectOtherIsServed();
    ExpectOnlySoundCallsWereServed();
}

/// The service sees no news in a number that it has served, whatever stands beside it.
TEST_P(HostileWords, AreServedOnceWhenTheyAreRepeated) {
    MemoryPeer peer = NewHotPeer();
    const std::uint64_t last = LastNumber();
    LeaveForIt(peer, [&] { peer.Put(last, HotCall(last, 5)); });
    EXPECT_TRUE(server_.ComesToRest());
    peer.Put(last, HotCall(last, 6));
    EXPECT_TRUE(server_.ComesToRest());
    EXPECT_EQ(server_->Endpoint().Calls().size(), sound_);
    peer.Put(last + 1, HotCall(last + 1, 7));
    if (!IsLookedFor(peer)) {
        peer.Look(last + 1);
    }
    EXPECT_EQ(MessageIn(peer.AwaitAnswer(last + 1).fixed).value, 7U);
    ++sound_;
    ExpectOtherIsServed();
    EXPECT_EQ(server_->Endpoint().Calls().size(), sound_);
    EXPECT_TRUE(logger_.Records().empty());
}

INSTANTIATE_TEST_SUITE_P(, HostileWords,
                         ::testing::Values(FoundBy::Poll, FoundBy::LastLook,
                                           FoundBy::LookOnYielding));

class PolledHostileWords : public HostileWords {};

/// In one round of looks.
TEST_P(PolledHostileWords, EndEachTheirOwnConnectionAndNoOther) {
    std::deque<MemoryPeer> peers;
    while (peers.size() < 5) {
        peers.push_back(NewHotPeer(static_cast<unsigned char>(peers.size())));
    }
    ASSERT_TRUE(server_.GoTo(Step::ServiceLooks));
    for (const std::size_t hostile : {0U, 1U, 3U}) {
        peers[hostile].Put(7, HotCall(7));
    }
    for (const std::size_t sound : {2U, 4U}) {
        peers[sound].Put(3, HotCall(3, 30 + sound));
    }
    stage_.Go(Side::Service);
    for (const std::size_t sound : {2U, 4U}) {
        EXPECT_EQ(MessageIn(peers[sound].AwaitAnswer(3).fixed).value, 30 + sound);
        EXPECT_FALSE(peers[sound].Socket().HasInput());
        ++sound_;
    }
    for (const std::size_t hostile : {0U, 1U, 3U}) {
        EXPECT_EQ(peers[hostile].Socket().ReadFrame().prelude.status, kStatusBadRequest);
        EXPECT_TRUE(peers[hostile].Socket().EndsNow());
    }
    ExpectOtherIsServed();
    EXPECT_EQ(server_->Endpoint().Calls().size(), sound_);
    EXPECT_EQ(server_->Connections(), 3U);
    EXPECT_EQ(logger_.Records().size(), 3U);
}

INSTANTIATE_TEST_SUITE_P(, PolledHostileWords, ::testing::Values(FoundBy::Poll));

}  // namespace
}  // namespace zam_platform::testing
