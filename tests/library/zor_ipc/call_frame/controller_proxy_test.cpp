#include "zam_conn_controller_proxy.h"

#include <chrono>
#include <limits>
#include <string>

#include "library/zor_ipc/call_frame/proxy_fixture.h"

namespace zam_connector {
namespace {

using std::chrono::milliseconds;
using test::kUnspecified;
using ::testing::AllOf;
using testing::AnswerWith;
using testing::Bytes;
using testing::FailWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using StartResponse = qx_zam_connector_ConnController_Start_rsp;
using StateResponse = qx_zam_connector_ConnController_GetState_rsp;

constexpr char kControllerFile[] = "zam_conn_controller_proxy";
constexpr std::size_t kStartArenaBytes = 1360;

class ZamConnControllerProxy : public test::ProxyTest {
protected:
    ZamConnControllerProxy() { transport_.SetDefault({}); }

    /// `Start` fails before anything is sent, and says why.
    void ExpectStartRefused(const ZamConnectionParameters& parameters,
                            const ::testing::Matcher<std::string>& reason) {
        EXPECT_EQ(controller_.Start(parameters), kUnspecified);
        EXPECT_THAT(transport_.Calls(), IsEmpty());
        ExpectFailureRecord(kControllerFile, "Start",
                            AllOf(StartsWith("ZamConnControllerProxy: "), reason));
    }

    void AnswerState(std::int32_t state, std::int32_t code, int status = 0) {
        StateResponse response{};
        response.state = state;
        response.resultCode = code;
        transport_.Enqueue(AnswerWith(response, {}, status));
    }
};

TEST_F(ZamConnControllerProxy, StartSendsAllFieldsOfTheParameters) {
    ZamConnectionParameters parameters;
    parameters.serverAddress = "srv.example";
    parameters.serverPort = 13000;
    parameters.productName = "Prod";
    parameters.deviceName = "D\xC3\xA4v-1";
    parameters.proxyUrl = "http://p:8";
    parameters.connectTimeout = milliseconds(1500);
    parameters.requestTimeout = milliseconds(30000);
    parameters.keepAlivePeriod = milliseconds(4294967295);
    EXPECT_EQ(controller_.Start(parameters), 0);

    const auto call = OnlyCall();
    const Bytes expected = {
        0x00, 0x00, 0x00, 0x00, 0x0B, 0x00, 0x00, 0x00,  // serverAddress: offset, length
        0x0B, 0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00,  // productName
        0x0F, 0x00, 0x00, 0x00, 0x06, 0x00, 0x00, 0x00,  // deviceName
        0x15, 0x00, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00,  // proxyUrl
        0xC8, 0x32, 0x00, 0x00,                          // serverPort
        0xDC, 0x05, 0x00, 0x00,                          // connectTimeoutMs
        0x30, 0x75, 0x00, 0x00,                          // requestTimeoutMs
        0xFF, 0xFF, 0xFF, 0xFF,                          // keepAlivePeriodMs
    };
    EXPECT_EQ(call.request, expected);
    EXPECT_EQ(std::string(call.requestArena.begin(), call.requestArena.end()),
              "srv.exampleProdD\xC3\xA4v-1http://p:8");
    EXPECT_EQ(call.requestArenaCapacity, kStartArenaBytes);
    ExpectNoRecord();
}

TEST_F(ZamConnControllerProxy, StartSendsEmptyParametersAsZeros) {
    EXPECT_EQ(controller_.Start({}), 0);
    const auto call = OnlyCall();
    EXPECT_EQ(call.request, Bytes(48, 0));
    EXPECT_TRUE(call.hasRequestArena);
    EXPECT_THAT(call.requestArena, IsEmpty());
}

TEST_F(ZamConnControllerProxy, StartTakesTextsThatFillTheArena) {
    ZamConnectionParameters parameters;
    parameters.serverAddress = std::string(340, 'a');
    parameters.productName = std::string(340, 'b');
    parameters.deviceName = std::string(340, 'c');
    parameters.proxyUrl = std::string(340, 'd');
    EXPECT_EQ(controller_.Start(parameters), 0);
    EXPECT_EQ(OnlyCall().requestArena.size(), kStartArenaBytes);
    ExpectNoRecord();
}

TEST_F(ZamConnControllerProxy, StartRefusesTextsOfOneByteMoreThanTheArena) {
    ZamConnectionParameters parameters;
    parameters.serverAddress = std::string(340, 'a');
    parameters.productName = std::string(340, 'b');
    parameters.deviceName = std::string(340, 'c');
    parameters.proxyUrl = std::string(341, 'd');
    ExpectStartRefused(parameters,
                       AllOf(HasSubstr("proxyUrl"), HasSubstr("341"), HasSubstr("1360")));
}

TEST_F(ZamConnControllerProxy, StartTakesAnyOneTextThatFillsTheArenaAndNamesOneThatDoesNotFit) {
    struct {
        std::string ZamConnectionParameters::*field;
        const char* name;
    } const rows[] = {
        {&ZamConnectionParameters::serverAddress, "serverAddress"},
        {&ZamConnectionParameters::productName, "productName"},
        {&ZamConnectionParameters::deviceName, "deviceName"},
        {&ZamConnectionParameters::proxyUrl, "proxyUrl"},
    };
    for (const auto& row : rows) {
        ZamConnectionParameters parameters;
        parameters.*row.field = std::string(1361, 'x');
        ExpectStartRefused(parameters,
                           AllOf(HasSubstr(row.name), HasSubstr("1361"), HasSubstr("1360")));
    }
    for (const auto& row : rows) {
        ZamConnectionParameters parameters;
        parameters.*row.field = std::string(1360, 'x');
        EXPECT_EQ(controller_.Start(parameters), 0) << row.name;
    }
    EXPECT_EQ(transport_.Calls().size(), 4U);
    ExpectNoRecord();
}

TEST_F(ZamConnControllerProxy, StartTakesDurationsFromZeroToTheLargest32BitNumber) {
    struct {
        milliseconds ZamConnectionParameters::*field;
        const char* name;
    } const rows[] = {
        {&ZamConnectionParameters::connectTimeout, "connectTimeout"},
        {&ZamConnectionParameters::requestTimeout, "requestTimeout"},
        {&ZamConnectionParameters::keepAlivePeriod, "keepAlivePeriod"},
    };
    for (const auto& row : rows) {
        for (const milliseconds duration : {milliseconds(-1), milliseconds(4294967296),
                                            milliseconds::min(), milliseconds::max()}) {
            ZamConnectionParameters parameters;
            parameters.*row.field = duration;
            ExpectStartRefused(parameters,
                               AllOf(HasSubstr(row.name), HasSubstr("4294967295"),
                                     HasSubstr(std::to_string(duration.count()) + " ms")));
        }
    }
    for (const auto& row : rows) {
        for (const milliseconds duration : {milliseconds(0), milliseconds(4294967295)}) {
            ZamConnectionParameters parameters;
            parameters.*row.field = duration;
            EXPECT_EQ(controller_.Start(parameters), 0) << row.name;
        }
    }
    ExpectNoRecord();
}

TEST_F(ZamConnControllerProxy, StartReturnsTheSameCodeWithLoggingOff) {
    logger_.SetThreshold(5);
    ZamConnectionParameters parameters;
    parameters.serverAddress = std::string(1361, 'x');
    EXPECT_EQ(controller_.Start(parameters), kUnspecified);
    EXPECT_THAT(transport_.Calls(), IsEmpty());
    EXPECT_EQ(logger_.IsEnabledCalls(), 1);
    ExpectNoRecord();
}

TEST_F(ZamConnControllerProxy, StartSendsEachCallWithAnArenaOfItsOwn) {
    ZamConnectionParameters parameters;
    parameters.serverAddress = "first and longer";
    controller_.Start(parameters);
    parameters.serverAddress = "second";
    controller_.Start(parameters);
    const auto calls = transport_.Calls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(std::string(calls[1].requestArena.begin(), calls[1].requestArena.end()), "second");
}

TEST_F(ZamConnControllerProxy, GetStateStoresEveryKnownState) {
    constexpr ZamConnectorState kStates[] = {
        ZamConnectorState::Stopped,   ZamConnectorState::Connecting,
        ZamConnectorState::Connected, ZamConnectorState::WaitingForReconnect,
        ZamConnectorState::Stopping,  ZamConnectorState::Refused,
    };
    for (std::int32_t number = 0; number < 6; ++number) {
        AnswerState(number, 0);
        // Something else than what comes.
        ZamConnectorState state = kStates[(number + 1) % 6];
        EXPECT_EQ(controller_.GetState(state), 0);
        EXPECT_EQ(state, kStates[number]);
    }
    ExpectNoRecord();
}

TEST_F(ZamConnControllerProxy, GetStateReadsStateAndCodeWhereTheyStand) {
    transport_.Enqueue({0, {0x03, 0x00, 0x00, 0x00, 0x45, 0x00, 0x00, 0x80}, {}});
    ZamConnectorState state = ZamConnectorState::Stopped;
    EXPECT_EQ(static_cast<unsigned>(controller_.GetState(state)), 0x80000045U);
    EXPECT_EQ(state, ZamConnectorState::WaitingForReconnect);
}

TEST_F(ZamConnControllerProxy, GetStateStoresTheStateBeforeItReturnsAnyCode) {
    for (const int code : test::kResultCodes) {
        AnswerState(2, code);
        ZamConnectorState state = ZamConnectorState::Stopped;
        EXPECT_EQ(controller_.GetState(state), code);
        EXPECT_EQ(state, ZamConnectorState::Connected) << code;
    }
    ExpectNoRecord();
}

TEST_F(ZamConnControllerProxy, GetStateRefusesUnknownStatesWhateverTheCode) {
    for (const std::int32_t number : {-1, 6, 7, 256, INT_MIN, INT_MAX}) {
        for (const int code : test::kResultCodes) {
            AnswerState(number, code);
            ZamConnectorState state = ZamConnectorState::Stopping;
            EXPECT_EQ(controller_.GetState(state), kUnspecified);
            EXPECT_EQ(state, ZamConnectorState::Stopping) << number;
            ExpectFailureRecord(kControllerFile, "GetState",
                                "ZamConnControllerProxy: undefined zam connector state!");
        }
    }
    logger_.SetThreshold(5);
    AnswerState(6, 0);
    ZamConnectorState state = ZamConnectorState::Stopping;
    EXPECT_EQ(controller_.GetState(state), kUnspecified);
    ExpectNoRecord();
}

TEST_F(ZamConnControllerProxy, GetStateLeavesTheStateWhenTheTransportFails) {
    for (const int status : test::kTransportStatuses) {
        AnswerState(2, 0, status);
        ZamConnectorState state = ZamConnectorState::Stopping;
        EXPECT_EQ(controller_.GetState(state), kUnspecified);
        EXPECT_EQ(state, ZamConnectorState::Stopping) << status;
    }
}

TEST_F(ZamConnControllerProxy, TellsItsTwoFailuresOfOneMethodApartByLine) {
    ZamConnectorState state{};
    transport_.Enqueue(FailWith(1));
    controller_.GetState(state);
    AnswerState(6, 0);
    controller_.GetState(state);
    const auto records = logger_.Records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_NE(records[0].line, records[1].line);
}

TEST_F(ZamConnControllerProxy, KeepsACopyOfItsRecord) {
    auto record = test::ControllerRecord(transport_.Get());
    proxy::ZamConnControllerProxy controller(record);
    record = {};
    EXPECT_EQ(controller.Stop(), 0);
    EXPECT_EQ(OnlyCall().requestHeader.riid, test::kControllerRiid);
}

}  // namespace
}  // namespace zam_connector
