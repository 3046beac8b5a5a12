#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;

Bytes LookupAnswer(std::uint64_t callNumber, std::uint16_t riid) {
    return FrameOf(
        {.kind = FrameKind::LookupAnswer, .callNumber = callNumber},
        Bytes{static_cast<unsigned char>(riid), static_cast<unsigned char>(riid >> 8U), 1, 0} +
            Bytes(4));
}

class ServerFrames : public ::testing::Test {
protected:
    void SetUp() override { client_ = server_.Greet(); }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_;
    RawSocket client_;
};

TEST_F(ServerFrames, LookEndpointsUp) {
    const std::pair<std::string, std::uint16_t> rows[] = {
        {kTestEndpoint, kTestRiid},      {"test.endpoin", 0xFFFF},
        {"test.endpoint ", 0xFFFF},      {"e", 0xFFFF},
        {std::string(256, 'e'), 0xFFFF}, {std::string("test.endpoint\0", 14), 0xFFFF},
    };
    std::uint64_t number = 0;
    for (const auto& [name, riid] : rows) {
        client_.Send(LookupFrame(name, ++number));
        EXPECT_EQ(ToHex(client_.Read(40)), ToHex(LookupAnswer(number, riid))) << name;
    }
}

TEST_F(ServerFrames, ComeSeveralInOneWrite) {
    const RawSocket client = server_.Connect();
    client.Send(HelloFrame() + LookupFrame(kTestEndpoint, 1) + CallFrame(2, kEcho, 3));
    EXPECT_EQ(ToHex(client.Read(40)), ToHex(LookupAnswer(1, kTestRiid)));
    EXPECT_EQ(ToHex(client.Read(64)), ToHex(AnswerFrame(2, 3, {}, kEcho)));
}

TEST_F(ServerFrames, ComeInSingleBytes) {
    const RawSocket client = server_.Connect();
    for (const unsigned char byte : HelloFrame() + CallFrame(1, kEcho, 3, Pattern(20))) {
        client.Send({byte});
        client.AwaitTaken();
    }
    EXPECT_EQ(ToHex(client.Read(84)), ToHex(AnswerFrame(1, 3, Pattern(20), kEcho)));
}

TEST_F(ServerFrames, MayBeCutAnywhere) {
    const std::size_t size = CallFrame(1, kEcho, 3, Pattern(20)).size();
    for (std::size_t cut = 1; cut < size; ++cut) {
        const Bytes call = CallFrame(cut, kEcho, cut, Pattern(20));
        client_.Send(Head(call, cut));
        client_.AwaitTaken();
        client_.Send(Tail(call, cut));
        ASSERT_EQ(ToHex(client_.Read(84)), ToHex(AnswerFrame(cut, cut, Pattern(20), kEcho))) << cut;
    }
}

TEST_F(ServerFrames, AreDroppedWithAConnectionThatEndsWithinOne) {
    const Bytes call = HelloFrame() + CallFrame(1, kEcho, 3, Pattern(20));
    for (std::size_t cut = 0; cut < call.size(); ++cut) {
        const RawSocket client = server_.Connect();
        client.Send(Head(call, cut));
        client.EndSending();
        EXPECT_TRUE(client.EndsNow()) << cut;
    }
    EXPECT_TRUE(server_.Endpoint().Calls().empty());
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(ServerFrames, AreReadWhereverTheyLie) {
    // Names of every length from 1 to 16 put the call behind them at every offset.
    std::uint64_t number = 0;
    for (std::size_t length = 1; length <= 16; ++length) {
        const std::uint64_t first = ++number;
        const std::uint64_t second = ++number;
        client_.Send(LookupFrame(std::string(length, 'n'), first) +
                     CallFrame(second, kEcho, second, Pattern(length)) +
                     LookupFrame(kTestEndpoint, ++number));
        EXPECT_EQ(ToHex(client_.Read(40)), ToHex(LookupAnswer(first, 0xFFFF)));
        EXPECT_EQ(ToHex(client_.Read(64 + length)),
                  ToHex(AnswerFrame(second, second, Pattern(length), kEcho)));
        EXPECT_EQ(ToHex(client_.Read(40)), ToHex(LookupAnswer(number, kTestRiid)));
    }
}

TEST_F(ServerFrames, HaveArenasOfEverySizeAroundTheBuffers) {
    std::uint64_t number = 0;
    for (const std::size_t size :
         {0U, 1U, 959U, 960U, 961U, 1023U, 1024U, 1025U, 4096U, 65536U, 676000U, kMaxArenaBytes}) {
        const Bytes arena = Pattern(size);
        ++number;
        // A frame follows at once, so that the end of the large one is found exactly.
        const Background sender([&] {
            client_.Send(CallFrame(number, kEcho, size, arena) + LookupFrame("x", number));
        });
        const Frame answer = client_.ReadFrame();
        EXPECT_EQ(answer.prelude.callNumber, number);
        EXPECT_EQ(MessageIn(answer.fixed).value, size);
        EXPECT_TRUE(answer.arena == arena) << size;
        EXPECT_EQ(ToHex(client_.Read(40)), ToHex(LookupAnswer(number, 0xFFFF)));
    }
}

TEST_F(ServerFrames, AreAnsweredInOrderToAClientThatReadsLate) {
    constexpr std::uint64_t kLookups = 4000;
    Bytes lookups;
    for (std::uint64_t number = 1; number <= kLookups; ++number) {
        lookups = std::move(lookups) + LookupFrame(number % 2 == 0 ? "x" : kTestEndpoint, number);
    }
    client_.Send(lookups);
    client_.AwaitTaken();
    for (std::uint64_t number = 1; number <= kLookups; ++number) {
        ASSERT_EQ(ToHex(client_.Read(40)),
                  ToHex(LookupAnswer(number, number % 2 == 0 ? 0xFFFF : kTestRiid)));
    }
    client_.Send(CallFrame(9, kEcho, 9));
    EXPECT_EQ(ToHex(client_.Read(64)), ToHex(AnswerFrame(9, 9, {}, kEcho)));
}

TEST_F(ServerFrames, GetAnAnswerOrTheirEndForEveryFlippedBit) {
    const Bytes sound = HelloFrame() + CallFrame(1, kEcho, 3, Pattern(8));
    for (std::size_t bit = 0; bit < sound.size() * 8; ++bit) {
        Bytes flipped = sound;
        flipped[bit / 8] = static_cast<unsigned char>(flipped[bit / 8] ^ (1U << bit % 8));
        const RawSocket client = server_.Connect();
        client.TrySend(flipped);
        if (::shutdown(client.Get(), SHUT_WR) != 0) {
            EXPECT_EQ(errno, ENOTCONN);
        }
        const Bytes answer = client.ReadToEnd();
        Prelude prelude;
        if (answer.empty()) {
            continue;  // it waited for bytes that the lengths promised
        }
        ASSERT_GE(answer.size(), kPreludeBytes) << "bit " << bit;
        ASSERT_EQ(DecodePrelude(answer.data(), prelude), FrameFault::None) << "bit " << bit;
        EXPECT_TRUE(prelude.kind == FrameKind::Refusal || prelude.kind == FrameKind::Answer)
            << "bit " << bit;
    }
    client_.Send(CallFrame(1, kEcho, 5));
    EXPECT_EQ(ToHex(client_.Read(64)), ToHex(AnswerFrame(1, 5, {}, kEcho))) << "others go on";
}

class ServerFrameTime : public ::testing::Test {
protected:
    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(ServerFrameTime, EndsAConnectionThatStopsWithinAFrame) {
    TestServer server({.frameTimeout = milliseconds(40)});
    const Bytes call = CallFrame(1, kEcho, 3, Pattern(5000));
    for (const std::size_t sent : {1U, 31U, 32U, 40U, 64U, 1500U, 5063U}) {
        logger_.Clear();
        const RawSocket client = server.Greet();
        client.Send(Head(call, sent));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(ToHex(client.ReadToEnd()), ToHex(StatusFrame(FrameKind::Refusal, 0, 19)));
        EXPECT_LT(std::chrono::steady_clock::now() - start, kBound);
        ASSERT_EQ(logger_.Records().size(), 1U);
        EXPECT_EQ(logger_.Records()[0].text,
                  "client of user " + std::to_string(::geteuid()) + ": only " +
                      std::to_string(sent) +
                      " bytes of a frame came within 40 ms: connection closed");
    }
}

TEST_F(ServerFrameTime, EndsAConnectionThatSaysNothing) {
    TestServer server({.frameTimeout = milliseconds(40)});
    const RawSocket client = server.Connect();
    EXPECT_EQ(ToHex(client.ReadToEnd()), ToHex(StatusFrame(FrameKind::Refusal, 0, 19)));
    ASSERT_EQ(logger_.Records().size(), 1U);
    EXPECT_EQ(logger_.Records()[0].text,
              "client of user " + std::to_string(::geteuid()) +
                  ": only 0 bytes of a frame came within 40 ms: connection closed");
}

TEST_F(ServerFrameTime, IsFiveSecondsByDefault) {
    EXPECT_EQ(ServerLimits{}.frameTimeout, milliseconds(5000));
}

TEST_F(ServerFrameTime, CountsFromTheFirstByteOfEachFrame) {
    // There is always a part of a frame at the server, but never of the same frame for long.
    TestServer server({.frameTimeout = milliseconds(400)});
    const RawSocket client = server.Greet();
    const auto start = std::chrono::steady_clock::now();
    Bytes rest;
    for (std::uint64_t number = 1; std::chrono::steady_clock::now() - start < milliseconds(900);
         ++number) {
        const Bytes next = LookupFrame(kTestEndpoint, number);
        client.Send(rest + Head(next, 20));
        rest = Tail(next, 20);
        client.AwaitTaken();
        if (number > 1) {
            ASSERT_EQ(ToHex(client.Read(40)), ToHex(LookupAnswer(number - 1, kTestRiid)));
        }
    }
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(ServerFrameTime, DoesNotEndAConnectionBetweenFrames) {
    TestServer server({.frameTimeout = milliseconds(20)});
    const RawSocket client = server.Greet();
    const RawSocket halfway = server.Greet();
    client.Send(Head(LookupFrame(kTestEndpoint, 1), 20));
    client.AwaitTaken();
    client.Send(Tail(LookupFrame(kTestEndpoint, 1), 20));
    client.ReadFrame();
    // The time of the other one, which began later, is over.
    halfway.Send({0x5A});
    halfway.ReadToEnd();
    client.Send(LookupFrame(kTestEndpoint, 2));
    EXPECT_EQ(ToHex(client.Read(40)), ToHex(LookupAnswer(2, kTestRiid)));
}

}  // namespace
}  // namespace zam_platform::testing
