#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "support/signal_storm.h"
#include "support/test_call.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class SocketChannel : public ::testing::Test {
protected:
    /// Text of the only record; fails the test when there is another number.
    std::string OnlyRecord() const {
        const auto records = logger_.Records();
        EXPECT_EQ(records.size(), 1U);
        return records.empty() ? "" : records.front().text;
    }

    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(SocketChannel, GreetsOnceAndNumbersItsCalls) {
    PairedLink link;
    link.Prepare(AnswerFrame(1, 0x77, BytesOf("xyz"), 5));
    TestCall call(5, 0x1122334455667788);
    call.RequestArena(BytesOf("abc")).ResponseArena(16);

    ASSERT_EQ(call.On(*link), kStatusOk);
    EXPECT_EQ(call.Value(), 0x77U);
    EXPECT_EQ(call.Answered(), BytesOf("xyz"));
    EXPECT_TRUE(call.OnlyUsedIsWritten());

    const RawSocket peer = link.Next();
    EXPECT_EQ(ToHex(peer.Read(32)),
              "5A 41 4D 46 01 00 01 00 00 00 00 00 00 00 00 00 "
              "10 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    const SessionToken token = link.Tokens().front();
    EXPECT_EQ(peer.Read(16), Bytes(token.begin(), token.end()));
    EXPECT_EQ(ToHex(peer.Read(67)),
              "5A 41 4D 46 01 00 04 00 01 00 00 00 00 00 00 00 "
              "20 00 00 00 03 00 00 00 00 00 00 00 00 00 00 00 "
              "02 01 05 00 20 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 88 77 66 55 44 33 22 11 61 62 63");

    peer.Send(AnswerFrame(2, 0x78, {}, 6));
    TestCall second(6, 1);
    ASSERT_EQ(second.On(*link), kStatusOk);
    EXPECT_EQ(second.Value(), 0x78U);
    EXPECT_EQ(ToHex(peer.Read(64)),
              "5A 41 4D 46 01 00 04 00 02 00 00 00 00 00 00 00 "
              "20 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "02 01 06 00 20 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00");
    EXPECT_FALSE(peer.HasInput());
    EXPECT_EQ(link.Connections(), 1U);
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(SocketChannel, FillsAnArenaToItsLastByte) {
    PairedLink link;
    const Bytes arena = Pattern(64);
    link.Prepare(AnswerFrame(1, 1, arena));
    TestCall call;
    call.ResponseArena(64);
    ASSERT_EQ(call.On(*link), kStatusOk);
    EXPECT_EQ(call.Answered(), arena);
    EXPECT_TRUE(call.OnlyUsedIsWritten());
}

TEST_F(SocketChannel, EmptiesTheArenaOfTheCallBefore) {
    PairedLink link;
    link.Prepare(AnswerFrame(1, 1, Pattern(64)));
    TestCall call;
    call.ResponseArena(64);
    ASSERT_EQ(call.On(*link), kStatusOk);
    const RawSocket peer = link.Next();
    peer.Send(AnswerFrame(2, 1, BytesOf("new")));
    ASSERT_EQ(call.On(*link), kStatusOk);
    EXPECT_EQ(call.Answered(), BytesOf("new"));
    EXPECT_TRUE(call.OnlyUsedIsWritten());
}

TEST_F(SocketChannel, ReturnsTheStatusThatTheServiceAnswersWith) {
    PairedLink link;
    const RawSocket* peer = nullptr;
    RawSocket kept;
    std::uint64_t number = 0;
    for (const std::int32_t status : {1, 3, 20, -7, 1000}) {
        ++number;
        const Bytes answer = StatusFrame(FrameKind::Answer, number, status);
        if (peer == nullptr) {
            link.Prepare(answer);
        } else {
            peer->Send(answer);
        }
        TestCall call;
        call.ResponseArena(16);
        EXPECT_EQ(call.On(*link), status);
        EXPECT_EQ(call.responseArena.used, 0U);
        if (peer == nullptr) {
            kept = link.Next();
            peer = &kept;
        }
    }
    EXPECT_EQ(link.Connections(), 1U) << "such an answer is a complete exchange";
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(SocketChannel, TakesAnAnswerThatComesInSingleBytes) {
    PairedLink link;
    const Bytes answer = AnswerFrame(1, 0xABCD, Pattern(40));
    const Background script([&] {
        const RawSocket peer = link.Next();
        for (const unsigned char byte : answer) {
            peer.Send({byte});
            peer.AwaitTaken();
        }
    });
    TestCall call;
    call.ResponseArena(100);
    ASSERT_EQ(call.On(*link), kStatusOk);
    EXPECT_EQ(call.Value(), 0xABCDU);
    EXPECT_EQ(call.Answered(), Pattern(40));
    EXPECT_TRUE(call.OnlyUsedIsWritten());
}

TEST_F(SocketChannel, TakesAnAnswerThatIsCutAnywhere) {
    PairedLink link;
    const std::size_t size = AnswerFrame(1, 0, Pattern(9)).size();
    const Background script([&] {
        const RawSocket peer = link.Next();
        for (std::size_t cut = 1; cut < size; ++cut) {
            const Bytes answer = AnswerFrame(cut, cut, Pattern(9));
            peer.Send(Head(answer, cut));
            peer.AwaitTaken();
            peer.Send(Tail(answer, cut));
            peer.AwaitTaken();
        }
    });
    for (std::size_t cut = 1; cut < size; ++cut) {
        TestCall call;
        call.ResponseArena(16);
        ASSERT_EQ(call.On(*link), kStatusOk) << cut;
        ASSERT_EQ(call.Value(), cut);
        ASSERT_EQ(call.Answered(), Pattern(9)) << cut;
    }
}

TEST_F(SocketChannel, CarriesLargeArenasThroughTinyBuffers) {
    for (const std::uint32_t size : {676000U, kMaxArenaBytes}) {
        PairedLink link;
        link.UseTinyBuffers();
        const Bytes request = Pattern(size, 1);
        const Bytes answer = Pattern(size, 2);
        const Background script([&] {
            const RawSocket peer = link.Next();
            peer.ReadFrame();
            const Frame call = peer.ReadFrame();
            EXPECT_EQ(call.arena, request);
            peer.Send(AnswerFrame(1, 9, answer));
        });
        TestCall call;
        call.RequestArena(request).ResponseArena(size);
        ASSERT_EQ(call.On(*link), kStatusOk);
        EXPECT_EQ(call.Answered(), answer);
        EXPECT_TRUE(call.OnlyUsedIsWritten());
    }
}

TEST_F(SocketChannel, GivesAnAnswerUpThatStopsHalfWay) {
    struct Row {
        std::size_t sent;
        const char* text;
    };
    const Row rows[] = {
        {1, "only 1 of 32 bytes of the answer came in time"},
        {31, "only 31 of 32 bytes of the answer came in time"},
        {32, "only 32 of 74 bytes of the answer came in time"},
        {73, "only 73 of 74 bytes of the answer came in time"},
    };
    for (const Row& row : rows) {
        logger_.Clear();
        PairedLink link(milliseconds(30));
        link.Prepare(Head(AnswerFrame(1, 1, Pattern(10)), row.sent));
        TestCall call;
        call.ResponseArena(16);
        const auto start = Clock::now();
        EXPECT_EQ(call.On(*link), kStatusTimeout);
        EXPECT_GE(Clock::now() - start, milliseconds(30));
        EXPECT_EQ(OnlyRecord(), row.text);
        EXPECT_TRUE(call.OnlyUsedIsWritten());
        EXPECT_TRUE(link.Next().ReadToEnd().size() > 0);
    }
}

TEST_F(SocketChannel, GivesAnAnswerFiveSecondsFromItsFirstByteToItsLast) {
    EXPECT_EQ(kFrameTimeout, std::chrono::seconds(5));
}

TEST_F(SocketChannel, WaitsForTheFirstByteWithoutLimit) {
    PairedLink link(milliseconds(10));
    const Background script([&] {
        const RawSocket peer = link.Next();
        peer.ReadFrame();
        peer.ReadFrame();
        // Far longer than an answer may take once it has begun.
        std::this_thread::sleep_for(milliseconds(200));
        peer.Send(AnswerFrame(1, 5));
    });
    TestCall call;
    EXPECT_EQ(call.On(*link), kStatusOk);
    EXPECT_EQ(call.Value(), 5U);
}

TEST_F(SocketChannel, EndsACallAtItsDeadline) {
    const Bytes answer = AnswerFrame(1, 1);
    for (const std::size_t sent : {std::size_t{0}, std::size_t{10}, answer.size() - 1}) {
        logger_.Clear();
        PairedLink link;
        link.Prepare(Head(answer, sent));
        TestCall call;
        call.Timeout(milliseconds(40));
        const auto start = Clock::now();
        EXPECT_EQ(call.On(*link), kStatusTimeout);
        EXPECT_GE(Clock::now() - start, milliseconds(40));
        EXPECT_LT(Clock::now() - start, kFrameTimeout);
        EXPECT_EQ(OnlyRecord(), sent == 0    ? "no answer came in time"
                                : sent == 10 ? "only 10 of 32 bytes of the answer came in time"
                                             : "only 63 of 64 bytes of the answer came in time");
        EXPECT_EQ(link.Next().ReadToEnd().size(), 48U + 64U);
    }
}

TEST_F(SocketChannel, EndsACallAtItsDeadlineWhileItsRequestIsNotTaken) {
    PairedLink link;
    link.UseTinyBuffers();
    TestCall call;
    call.RequestArena(Pattern(kMaxArenaBytes)).Timeout(milliseconds(40));
    EXPECT_EQ(call.On(*link), kStatusTimeout);
    EXPECT_EQ(OnlyRecord(), "the service did not take the request in time");
    EXPECT_EQ(link.Connections(), 1U);
}

TEST_F(SocketChannel, AnswersWithinItsDeadline) {
    PairedLink link;
    link.UseTinyBuffers();
    const Bytes request = Pattern(300000);
    const Background script([&] {
        const RawSocket peer = link.Next();
        peer.ReadFrame();
        peer.Send(EchoOf(peer.ReadFrame()));
    });
    TestCall call;
    call.RequestArena(request).ResponseArena(300000).Timeout(kBound);
    EXPECT_EQ(call.On(*link), kStatusOk);
    EXPECT_EQ(call.Answered(), request);
}

TEST_F(SocketChannel, SurvivesStormsOfSignals) {
    constexpr int kRounds = 200;
    PairedLink link;
    link.UseTinyBuffers();
    const Background script([&] {
        const RawSocket peer = link.Next();
        peer.ReadFrame();
        for (int round = 0; round < kRounds; ++round) {
            peer.Send(EchoOf(peer.ReadFrame()));
        }
    });
    const Bytes arena = Pattern(60000);
    const SignalStorm storm;
    for (int round = 0; round < kRounds; ++round) {
        TestCall call(0, static_cast<std::uint64_t>(round));
        call.RequestArena(arena).ResponseArena(60000);
        if (round % 2 == 0) {
            call.Timeout(kBound);  // waits in poll rather than in the read
        }
        ASSERT_EQ(call.On(*link), kStatusOk) << round;
        ASSERT_EQ(call.Value(), static_cast<std::uint64_t>(round));
        ASSERT_EQ(call.Answered(), arena);
    }
    EXPECT_GT(storm.Sent(), 10U);
    EXPECT_EQ(link.Connections(), 1U);
}

}  // namespace
}  // namespace zam_platform::testing
