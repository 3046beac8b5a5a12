#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_call.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

constexpr std::uint32_t kSmallRoomBytes = 16;

Bytes MessageWithHeader(std::uint16_t riid, std::uint16_t operation, std::uint32_t fixedSize) {
    TestMessage message = MakeMessage(operation, 5, riid);
    message.header.fixedSize = fixedSize;
    return FrameOf({.kind = FrameKind::Answer, .callNumber = 1}, MessageBytes(message));
}

Bytes RefusalFrame(std::int32_t status) {
    return StatusFrame(FrameKind::Refusal, 0, status);
}

std::vector<BrokenAnswer> BrokenPreludes() {
    return {
        {"magic", ChangedAnswer(0, {0}), kStatusProtocol,
         "frame magic is 0x464d4100, not 0x464d415a"},
        {"version", ChangedAnswer(4, {2}), kStatusVersion, "frame version is 2, not 1"},
        {"kind 0", ChangedAnswer(6, {0}), kStatusProtocol, "frame kind is 0, not 1 to 9"},
        {"kind 10", ChangedAnswer(6, {10}), kStatusProtocol, "frame kind is 10, not 1 to 9"},
        {"a greeting", ChangedAnswer(6, {1}), kStatusProtocol, "answer of frame kind 1, not 5"},
        {"a lookup's answer", ChangedAnswer(6, {3}), kStatusProtocol,
         "answer of frame kind 3, not 5"},
        {"a call", ChangedAnswer(6, {4}), kStatusProtocol, "answer of frame kind 4, not 5"},
        {"the next call", ChangedAnswer(8, {2}), kStatusProtocol, "answer to call 2, not 1"},
        {"a call far away", ChangedAnswer(15, {0x80}), kStatusProtocol,
         "answer to call 9223372036854775809, not 1"},
        {"fixed part beyond the cap", ChangedAnswer(16, {1, 0x10}), kStatusProtocol,
         "fixed part of 4097 bytes exceeds 4096"},
        {"arena beyond the cap", ChangedAnswer(20, {1, 0, 0x10}), kStatusProtocol,
         "arena of 1048577 bytes exceeds 1048576"},
        {"reserved", ChangedAnswer(28, {1}), kStatusProtocol, "unknown flags 0x1 of the frame"},
    };
}

std::vector<BrokenAnswer> BrokenBodies() {
    const Prelude answer{.kind = FrameKind::Answer, .callNumber = 1};
    const Prelude failed{.kind = FrameKind::Answer, .callNumber = 1, .status = 3};
    const Bytes message = MessageBytes(MakeMessage(0, 5));
    const std::string header = "the answer's header is not that of its request";
    return {
        {"fixed part too small", FrameOf(answer, Head(message, 24)), kStatusProtocol,
         "answer with a fixed part of 24 bytes, not 32"},
        {"fixed part too large", FrameOf(answer, message + Bytes(8)), kStatusProtocol,
         "answer with a fixed part of 40 bytes, not 32"},
        {"no fixed part", FrameOf(answer), kStatusProtocol,
         "answer with a fixed part of 0 bytes, not 32"},
        {"arena beyond the room", FrameOf(answer, message, Bytes(kSmallRoomBytes + 1, 7)),
         kStatusAnswerTooLarge, "answer with an arena of 17 bytes, more than 16"},
        {"arena far beyond the room", FrameOf(answer, message, Bytes(100000, 7)),
         kStatusAnswerTooLarge, "answer with an arena of 100000 bytes, more than 16"},
        {"status with a fixed part", FrameOf(failed, message), kStatusProtocol,
         "answer with a fixed part of 32 bytes, not 0"},
        {"status with an arena", FrameOf(failed, {}, {1}), kStatusAnswerTooLarge,
         "answer with an arena of 1 bytes, more than 0"},
        {"a byte behind", AnswerFrame(1, 5, BytesOf("abc")) + Bytes{9}, kStatusProtocol,
         "1 bytes behind an answer of 67 bytes"},
        {"bytes behind a status", StatusFrame(FrameKind::Answer, 1, 3) + Bytes(40, 9),
         kStatusProtocol, "40 bytes behind an answer of 32 bytes"},
        {"another riid", MessageWithHeader(kTestRiid + 1, 0, 32), kStatusProtocol, header},
        {"another operation", MessageWithHeader(kTestRiid, 1, 32), kStatusProtocol, header},
        {"another size", MessageWithHeader(kTestRiid, 0, 33), kStatusProtocol, header},
        {"refusal: not admitted", RefusalFrame(16), kStatusNotAdmitted,
         "the service refused the connection: the service does not serve this user"},
        {"refusal: quota", RefusalFrame(17), kStatusQuota,
         "the service refused the connection: the service's limits for this user are reached"},
        {"refusal: version", RefusalFrame(18), kStatusVersion,
         "the service refused the connection: the service speaks another version of the frame "
         "format"},
        {"refusal: bad request", RefusalFrame(19), kStatusBadRequest,
         "the service refused the connection: the service found the request to break a rule"},
        {"refusal: unheard of", RefusalFrame(77), 77,
         "the service refused the connection: transport status 77"},
        {"refusal without a reason", RefusalFrame(0), kStatusProtocol,
         "answer of frame kind 6, not 5"},
    };
}

class ChannelFaults : public ::testing::TestWithParam<std::vector<BrokenAnswer> (*)()> {
protected:
    zam_connector::testing::RecordingLogger logger_;
};

TEST_P(ChannelFaults, FailTheCallAndCloseTheConnection) {
    for (const BrokenAnswer& row : GetParam()()) {
        SCOPED_TRACE(row.name);
        logger_.Clear();
        PairedLink link;
        link.Prepare(row.answer);
        TestCall call;
        call.ResponseArena(kSmallRoomBytes);

        EXPECT_EQ(call.On(*link), row.status);
        ASSERT_EQ(logger_.Records().size(), 1U);
        EXPECT_EQ(logger_.Records()[0].text, row.text);
        EXPECT_EQ(logger_.Records()[0].file, "service_link");
        EXPECT_EQ(logger_.Records()[0].level, zor::logger::kLevelError);
        EXPECT_TRUE(call.OnlyUsedIsWritten());
        EXPECT_EQ(link.Next().ReadToEnd().size(), 48U + 64U) << "closed behind the one request";

        link.Prepare(AnswerFrame(1, 6));
        EXPECT_EQ(call.On(*link), kStatusOk);
        EXPECT_EQ(link.Connections(), 2U);
    }
}

INSTANTIATE_TEST_SUITE_P(InAnswers, ChannelFaults,
                         ::testing::Values(&BrokenPreludes, &BrokenBodies),
                         [](const auto& row) { return row.index == 0 ? "Prelude" : "Body"; });

class ChannelTest : public ::testing::Test {
protected:
    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(ChannelTest, RefusesAnArenaWhereTheOperationHasNone) {
    PairedLink link;
    link.Prepare(AnswerFrame(1, 5, BytesOf("abc")));
    EXPECT_EQ(TestCall().On(*link), kStatusAnswerTooLarge);
}

TEST_F(ChannelTest, FailsWhenTheConnectionEndsWithinAnAnswer) {
    const Bytes answer = AnswerFrame(1, 5, BytesOf("abcdefgh"));
    for (std::size_t cut = 0; cut < answer.size(); ++cut) {
        logger_.Clear();
        PairedLink link;
        link.Prepare(Head(answer, cut), PairedLink::Then::EndSending);
        TestCall call;
        call.ResponseArena(kSmallRoomBytes);
        ASSERT_EQ(call.On(*link), kStatusBroken) << cut;
        ASSERT_EQ(logger_.Records().size(), 1U);
        EXPECT_EQ(logger_.Records()[0].text, "the service closed the connection");
        EXPECT_EQ(logger_.Records()[0].level, zor::logger::kLevelWarning);
        EXPECT_TRUE(call.OnlyUsedIsWritten()) << cut;
        EXPECT_EQ(call.responseArena.used, cut > 64 ? cut - 64 : 0);
        EXPECT_EQ(link.Attempts(), 1U) << "sent again";
    }
}

TEST_F(ChannelTest, FailsWhenTheServiceIsGoneWithTheRequestUnread) {
    PairedLink link;
    const Background script([&] {
        RawSocket peer = link.Next();
        peer.Read(1);
        peer.Close();
    });
    EXPECT_EQ(TestCall().On(*link), kStatusBroken);
    EXPECT_EQ(link.Attempts(), 1U) << "sent again";
}

TEST_F(ChannelTest, FailsOrGivesOtherDataForEveryFlippedBit) {
    // What tells the frame and the message apart from others stands in the first 40 bytes.
    constexpr std::size_t kCheckedBytes = 40;
    const Bytes answer = AnswerFrame(1, 5, BytesOf("abcdefgh"));
    for (std::size_t bit = 0; bit < answer.size() * 8; ++bit) {
        Bytes flipped = answer;
        flipped[bit / 8] = static_cast<unsigned char>(flipped[bit / 8] ^ (1U << bit % 8));
        PairedLink link;
        link.Prepare(flipped, PairedLink::Then::EndSending);
        TestCall call;
        call.ResponseArena(kSmallRoomBytes);
        const std::int32_t status = call.On(*link);
        EXPECT_EQ(status == kStatusOk, bit / 8 >= kCheckedBytes) << "bit " << bit;
        if (status != kStatusOk) {
            EXPECT_TRUE(status == kStatusProtocol || status == kStatusVersion ||
                        status == kStatusBroken || status == kStatusAnswerTooLarge)
                << "bit " << bit << ": " << status;
        } else {
            EXPECT_EQ(Tail(MessageBytes(call.response) + call.Answered(), 8), Tail(flipped, 40));
        }
        EXPECT_TRUE(call.OnlyUsedIsWritten()) << "bit " << bit;
    }
}

TEST_F(ChannelTest, RefusesARequestThatNoFrameCarries) {
    PairedLink link;
    TestCall arena;
    arena.RequestArena(Bytes(kMaxArenaBytes + 1));
    EXPECT_EQ(arena.On(*link), kStatusRequestTooLarge);
    TestCall fixed;
    fixed.request.header.fixedSize = kMaxFixedBytes + 1;
    EXPECT_EQ(fixed.On(*link), kStatusRequestTooLarge);

    EXPECT_EQ(link.Attempts(), 0U);
    ASSERT_EQ(logger_.Records().size(), 2U);
    EXPECT_EQ(logger_.Records()[0].text,
              "request of 32 and 1048577 bytes exceeds 4096 and 1048576");
    EXPECT_EQ(logger_.Records()[1].text, "request of 4097 and 0 bytes exceeds 4096 and 1048576");
}

}  // namespace
}  // namespace zam_platform::testing
