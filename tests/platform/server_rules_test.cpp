#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/refusal.h"
#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

struct RuleRow {
    Bytes frame;
    bool greets;
    std::int32_t status;
    const char* text;
};

Bytes SoundCallWith(std::size_t offset, const Bytes& replacement) {
    Bytes call = CallFrame(1, kEcho, 3);
    std::copy(replacement.begin(), replacement.end(),
              call.begin() + static_cast<std::ptrdiff_t>(offset));
    return call;
}

Bytes CallOf(const TestMessage& message, std::size_t fixedBytes = sizeof(TestMessage)) {
    Bytes fixed = MessageBytes(message);
    fixed.resize(fixedBytes);
    return FrameOf({.kind = FrameKind::Call, .callNumber = 1}, fixed);
}

TestMessage WithSize(std::uint32_t fixedSize) {
    TestMessage message = MakeMessage(kEcho, 3);
    message.header.fixedSize = fixedSize;
    return message;
}

std::vector<RuleRow> PreludeRules() {
    return {
        {SoundCallWith(0, {0}), true, 19, "frame magic is 0x464d4100, not 0x464d415a"},
        {SoundCallWith(4, {2}), true, 18, "frame version is 2, not 1"},
        {SoundCallWith(4, {2}), false, 18, "frame version is 2, not 1"},
        {SoundCallWith(6, {0}), true, 19, "frame kind is 0, not 1 to 9"},
        {SoundCallWith(6, {10}), true, 19, "frame kind is 10, not 1 to 9"},
        {FrameOf({.kind = FrameKind::MemoryRequest}, Bytes(8)), true, 19,
         "frame kind 7, which was not offered"},
        {FrameOf({.kind = FrameKind::MemoryAnswer}, Bytes(8)), true, 19,
         "frame kind 8 from a client"},
        {FrameOf({.kind = FrameKind::Look}, {}), true, 19, "frame kind 9, which was not offered"},
        {SoundCallWith(29, {1}), true, 19, "flags 0x100 of a call without shared memory"},
        {SoundCallWith(16, {1, 0x10}), true, 19, "fixed part of 4097 bytes exceeds 4096"},
        {SoundCallWith(20, {1, 0, 0x10}), true, 19, "arena of 1048577 bytes exceeds 1048576"},
        {SoundCallWith(28, {5}), true, 19, "unknown flags 0x4 of the frame"},
        {SoundCallWith(24, {3}), true, 19, "frame of a client with status 3"},
        {SoundCallWith(24, {0xFF, 0xFF, 0xFF, 0xFF}), true, 19, "frame of a client with status -1"},
        {FrameOf({.kind = FrameKind::LookupAnswer}, Bytes(8)), true, 19,
         "frame kind 3 from a client"},
        {FrameOf({.kind = FrameKind::Answer}, Bytes(32)), true, 19, "frame kind 5 from a client"},
        {FrameOf({.kind = FrameKind::Refusal}), true, 19, "frame kind 6 from a client"},
    };
}

std::vector<RuleRow> GreetingAndLookupRules() {
    const Prelude hello{.kind = FrameKind::Hello};
    const Prelude lookup{.kind = FrameKind::Lookup, .callNumber = 1};
    return {
        {CallFrame(1, kEcho, 3), false, 19, "frame before the greeting"},
        {LookupFrame(kTestEndpoint), false, 19, "frame before the greeting"},
        {HelloFrame(), true, 19, "second greeting"},
        {FrameOf(hello, Bytes(15)), false, 19, "greeting of 15 and 0 bytes, not 16 and 0"},
        {FrameOf(hello, Bytes(17)), false, 19, "greeting of 17 and 0 bytes, not 16 and 0"},
        {FrameOf(hello), false, 19, "greeting of 0 and 0 bytes, not 16 and 0"},
        {FrameOf(hello, Bytes(16), Bytes(1)), false, 19,
         "greeting of 16 and 1 bytes, not 16 and 0"},
        {FrameOf(lookup), true, 19, "lookup of 0 and 0 bytes, not 1 to 256 and 0"},
        {FrameOf(lookup, Bytes(257)), true, 19, "lookup of 257 and 0 bytes, not 1 to 256 and 0"},
        {FrameOf(lookup, Bytes(4), Bytes(1)), true, 19,
         "lookup of 4 and 1 bytes, not 1 to 256 and 0"},
    };
}

std::vector<RuleRow> CallRules() {
    return {
        {CallOf(MakeMessage(kEcho, 3), 23), true, 19,
         "call with a fixed part of 23 bytes, less than the header's 24"},
        {FrameOf({.kind = FrameKind::Call}), true, 19,
         "call with a fixed part of 0 bytes, less than the header's 24"},
        {CallOf(MakeMessage(kEcho, 3, 0x0103)), true, 19, "call to unknown interface 259"},
        {CallOf(MakeMessage(kEcho, 3, 0xFFFF)), true, 19, "call to unknown interface 65535"},
        {CallOf(MakeMessage(kTestOperations, 3)), true, 19,
         "call to unknown operation 7 of test.endpoint"},
        {CallOf(MakeMessage(0xFFFF, 3)), true, 19,
         "call to unknown operation 65535 of test.endpoint"},
        {CallOf(MakeMessage(kEcho, 3), 24), true, 19,
         "Echo of test.endpoint: fixed part of 24 bytes, header says 32, not 32"},
        {CallOf(MakeMessage(kEcho, 3), 40), true, 19,
         "Echo of test.endpoint: fixed part of 40 bytes, header says 32, not 32"},
        {CallOf(WithSize(31)), true, 19,
         "Echo of test.endpoint: fixed part of 32 bytes, header says 31, not 32"},
        {CallOf(WithSize(0xFFFFFFFF)), true, 19,
         "Echo of test.endpoint: fixed part of 32 bytes, header says 4294967295, not 32"},
        {CallOf(WithSize(40), 40), true, 19,
         "Echo of test.endpoint: fixed part of 40 bytes, header says 40, not 32"},
        {CallFrame(1, kDrop, 3, Bytes(kSmallArenaBytes + 1)), true, 19,
         "Drop of test.endpoint: arena of 17 bytes exceeds 16"},
        {CallFrame(1, kDrop, 3, Bytes(900)), true, 19,
         "Drop of test.endpoint: arena of 900 bytes exceeds 16"},
    };
}

class ServerRules : public ::testing::TestWithParam<std::vector<RuleRow> (*)()> {
protected:
    void ExpectRefusal(const RuleRow& row, const Bytes& frame) {
        const RawSocket client = row.greets ? server_.Greet() : server_.Connect();
        client.Send(frame);
        ExpectRefused(client, logger_, row.status, row.text);
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_;
};

TEST_P(ServerRules, CloseAConnectionThatBreaksThem) {
    for (const RuleRow& row : GetParam()()) {
        ExpectRefusal(row, row.frame);
    }
    EXPECT_TRUE(server_.Endpoint().Calls().empty());
    EXPECT_EQ(server_.Connections(), 0U);
}

TEST_P(ServerRules, AreCheckedBeforeTheRestOfAFrameIsThere) {
    // 32 bytes tell all about a frame, and 24 more all about a call.
    for (const RuleRow& row : GetParam()()) {
        ExpectRefusal(row, Head(row.frame, std::min<std::size_t>(row.frame.size(), 56)));
    }
}

std::string RuleSetName(const ::testing::TestParamInfo<std::vector<RuleRow> (*)()>& info) {
    constexpr const char* kNames[] = {"Preludes", "GreetingsAndLookups", "Calls"};
    return kNames[info.index];
}

INSTANTIATE_TEST_SUITE_P(ForFrames, ServerRules,
                         ::testing::Values(&PreludeRules, &GreetingAndLookupRules, &CallRules),
                         &RuleSetName);

class ServerArenaLimit : public ::testing::Test {
protected:
    zam_connector::testing::RecordingLogger logger_;
    TestServer server_;
};

TEST_F(ServerArenaLimit, IsTheOperationsOwn) {
    for (const std::uint32_t size : {kSmallArenaBytes - 1, kSmallArenaBytes}) {
        const RawSocket client = server_.Greet();
        client.Send(CallFrame(1, kDrop, 3, Bytes(size)));
        EXPECT_TRUE(client.EndsNow()) << "the handler drops the connection";
    }
    EXPECT_EQ(server_.Endpoint().Calls().size(), 2U);
    EXPECT_TRUE(logger_.Records().empty());
}

}  // namespace
}  // namespace zam_platform::testing
