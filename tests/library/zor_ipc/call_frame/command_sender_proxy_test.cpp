#include "zam_conn_command_sender_proxy.h"

#include <string>

#include "library/zor_ipc/call_frame/proxy_fixture.h"

namespace zam_connector {
namespace {

using test::kUnspecified;
using ::testing::AllOf;
using testing::Bytes;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr char kCommandSenderFile[] = "zam_conn_command_sender_proxy";
constexpr std::uint32_t kEventArenaBytes = 128;

class ZamConnCommandSenderProxy : public test::ProxyTest {
protected:
    ZamConnCommandSenderProxy() { transport_.SetDefault({}); }
};

TEST_F(ZamConnCommandSenderProxy, PostZamEventSendsTheText) {
    EXPECT_EQ(commandSender_.PostZamEvent("low b\xC3\xA4ttery"), 0);
    const auto call = OnlyCall();
    EXPECT_EQ(call.request, (Bytes{0x00, 0x00, 0x00, 0x00, 0x0C, 0x00, 0x00, 0x00}));
    EXPECT_EQ(std::string(call.requestArena.begin(), call.requestArena.end()),
              "low b\xC3\xA4ttery");
    EXPECT_EQ(call.requestArenaCapacity, kEventArenaBytes);
    EXPECT_FALSE(call.hasResponseArena);
    ExpectNoRecord();
}

TEST_F(ZamConnCommandSenderProxy, PostZamEventSendsBytesAsTheyStand) {
    std::string bytes;
    for (int byte = 0; byte < 128; ++byte) {
        bytes.push_back(static_cast<char>(2 * byte));
    }
    EXPECT_EQ(commandSender_.PostZamEvent(bytes), 0);
    const auto call = OnlyCall();
    EXPECT_EQ(std::string(call.requestArena.begin(), call.requestArena.end()), bytes);
}

TEST_F(ZamConnCommandSenderProxy, PostZamEventTakesTextsUpToTheArena) {
    for (const std::size_t size : {0U, 1U, 127U, 128U}) {
        EXPECT_EQ(commandSender_.PostZamEvent(std::string(size, 'e')), 0) << size;
        const auto call = transport_.Calls().back();
        EXPECT_EQ(call.request, (Bytes{0, 0, 0, 0, static_cast<unsigned char>(size), 0, 0, 0}));
        EXPECT_TRUE(call.hasRequestArena);
        EXPECT_EQ(call.requestArena, Bytes(size, 'e'));
        EXPECT_EQ(call.requestArenaCapacity, kEventArenaBytes);
    }
    ExpectNoRecord();
}

TEST_F(ZamConnCommandSenderProxy, PostZamEventRefusesLongerTextsWithoutACall) {
    for (const std::size_t size : {129U, 130U, 1000U, 1000000U}) {
        EXPECT_EQ(commandSender_.PostZamEvent(std::string(size, 'e')), kUnspecified) << size;
        ExpectFailureRecord(
            kCommandSenderFile, "PostZamEvent",
            AllOf(StartsWith("ZamConnCommandSenderProxy: text: "),
                  HasSubstr(std::to_string(size) + " bytes"), HasSubstr("128 bytes")));
    }
    EXPECT_THAT(transport_.Calls(), IsEmpty());
}

TEST_F(ZamConnCommandSenderProxy, PostZamEventReturnsTheSameCodeWithLoggingOff) {
    logger_.SetThreshold(5);
    EXPECT_EQ(commandSender_.PostZamEvent(std::string(129, 'e')), kUnspecified);
    EXPECT_THAT(transport_.Calls(), IsEmpty());
    EXPECT_EQ(logger_.IsEnabledCalls(), 1);
    ExpectNoRecord();
}

TEST_F(ZamConnCommandSenderProxy, PostZamEventTellsItsTwoFailuresApartByLine) {
    commandSender_.PostZamEvent(std::string(129, 'e'));
    transport_.Enqueue(testing::FailWith(1));
    commandSender_.PostZamEvent("short");
    const auto records = logger_.Records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_NE(records[0].line, records[1].line);
}

TEST_F(ZamConnCommandSenderProxy, ScheduleSyncSendsAnEmptyRequest) {
    EXPECT_EQ(commandSender_.ScheduleSync(), 0);
    EXPECT_EQ(OnlyCall().request, Bytes());
    ExpectNoRecord();
}

}  // namespace
}  // namespace zam_connector
