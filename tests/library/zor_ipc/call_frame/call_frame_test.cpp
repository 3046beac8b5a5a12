#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "ipc_transfer_call.h"
#include "qx/conn_controller.h"
#include "qx/zam_data_provider.h"
#include "session_status.h"
#include "support/result_codes.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_connector_testing/scripted_transport.h"

namespace zam_connector::proxy {
namespace {

using test::kUnspecified;
using testing::AnswerWith;
using ::testing::ElementsAre;
using testing::FailWith;
using ::testing::IsEmpty;
using testing::LogRecord;

constexpr int kFrameStatuses[] = {1, -1, INT_MAX, INT_MIN};

/// The result code of a session status, as the table of statuses has it.
std::uint32_t ExpectedCode(int status) {
    switch (status) {
        case -5:
        case -4:
        case -1:
            return 0x80000046;
        case -3:
        case -2:
            return 0x80000071;
        case 0:
            return 0;
        case 1:
            return 1;
        default:
            return 0x8000004B;
    }
}

TEST(SessionStatus, HasAResultCodeForEachOfItsValues) {
    for (int status = INT8_MIN; status <= INT8_MAX; ++status) {
        const int code = SessionStatusToResultCode(static_cast<std::int8_t>(status));
        EXPECT_EQ(static_cast<std::uint32_t>(code), ExpectedCode(status)) << status;
    }
}

class CallFrame : public ::testing::Test {
protected:
    CallFrame() {
        qx_zam_connector_ZamDataProvider_proxy_init(&provider_, transport_.Get(), 9);
        qx_zam_connector_ConnController_proxy_init(&controller_, transport_.Get(), 8);
    }

    void TearDown() override { EXPECT_THAT(transport_.Faults(), IsEmpty()); }

    /// The checked call, of an operation with a session status.
    int OpenPolicyChannel() {
        openResponse_ = {};
        return IpcTransferCallAndErrorHandle("OpenPolicyChannel", provider_.ops->OpenPolicyChannel,
                                             provider_, emptyRequest_, nullptr, openResponse_,
                                             nullptr);
    }

    void AnswerOpen(std::int8_t sessionStatus, int status = 0) {
        qx::OpenChannelResponse answer{};
        answer.channel = 77;
        answer.sessionStatus = sessionStatus;
        transport_.Enqueue(AnswerWith(answer, {}, status));
    }

    /// The plain call of an operation without outputs.
    int Stop() {
        qx::ResultResponse response{};
        return IpcTransferCall("Stop", controller_.ops->Stop, controller_, emptyRequest_, nullptr,
                               response, nullptr);
    }

    void AnswerStop(int code, int status = 0) {
        qx::ResultResponse answer{};
        answer.resultCode = code;
        transport_.Enqueue(AnswerWith(answer, {}, status));
    }

    /// The plain call of an operation with outputs.
    template <typename Store>
    int GetPolicyHash(Store&& store) {
        qx::HashResponse response{};
        return IpcTransferCall("GetPolicyHash", provider_.ops->GetPolicyHash, provider_,
                               emptyRequest_, nullptr, response, nullptr,
                               std::forward<Store>(store));
    }

    void AnswerHash(std::uint64_t hash, int code, int status = 0) {
        qx::HashResponse answer{};
        answer.hash = hash;
        answer.resultCode = code;
        transport_.Enqueue(AnswerWith(answer, {}, status));
    }

    testing::RecordingLogger logger_;
    testing::ScriptedTransport transport_;
    qx_zam_connector_ZamDataProvider_proxy provider_{};
    qx_zam_connector_ConnController_proxy controller_{};
    qx::EmptyRequest emptyRequest_{};
    qx::OpenChannelResponse openResponse_{};
};

TEST_F(CallFrame, CheckedCallMapsEverySessionStatus) {
    for (int status = INT8_MIN; status <= INT8_MAX; ++status) {
        SCOPED_TRACE(status);
        logger_.Clear();
        AnswerOpen(static_cast<std::int8_t>(status));
        const int code = OpenPolicyChannel();
        if (status == 0 || status == 1) {
            EXPECT_EQ(code, 0);
            EXPECT_THAT(logger_.Records(), IsEmpty());
            EXPECT_EQ(logger_.IsEnabledCalls(), 0);
        } else {
            EXPECT_EQ(static_cast<std::uint32_t>(code), ExpectedCode(status));
            EXPECT_THAT(logger_.Records(),
                        ElementsAre(LogRecord{
                            4, "ipc_transfer_call", 69, "IpcTransferCallAndErrorHandle",
                            "Ipc call OpenPolicyChannel terminated with a session error " +
                                std::to_string(status)}));
        }
        EXPECT_EQ(openResponse_.channel, 77);
        EXPECT_EQ(openResponse_.sessionStatus, status) << "the caller cannot tell 0 from 1";
    }
}

TEST_F(CallFrame, CheckedCallReportsTransportFailures) {
    for (const int status : kFrameStatuses) {
        logger_.Clear();
        AnswerOpen(0, status);
        EXPECT_EQ(OpenPolicyChannel(), kUnspecified);
        EXPECT_THAT(
            logger_.Records(),
            ElementsAre(LogRecord{
                4, "ipc_transfer_call", 64, "IpcTransferCallAndErrorHandle",
                "Ipc call OpenPolicyChannel terminated with a error " + std::to_string(status)}));
    }
}

TEST_F(CallFrame, CheckedCallGivesTheSameCodesWithTheLevelOff) {
    logger_.SetThreshold(5);
    for (int status = INT8_MIN; status <= INT8_MAX; ++status) {
        AnswerOpen(static_cast<std::int8_t>(status));
        const std::uint32_t expected = status == 1 ? 0 : ExpectedCode(status);
        EXPECT_EQ(static_cast<std::uint32_t>(OpenPolicyChannel()), expected) << status;
    }
    AnswerOpen(0, -1);
    EXPECT_EQ(OpenPolicyChannel(), kUnspecified);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(CallFrame, CheckedCallHandsOnBothArenas) {
    transport_.SetDefault({});
    common::StackArena<16> requestArena;
    common::StackArena<32> responseArena;
    IpcTransferCallAndErrorHandle("OpenPolicyChannel", provider_.ops->OpenPolicyChannel, provider_,
                                  emptyRequest_, requestArena.Get(), openResponse_,
                                  responseArena.Get());
    OpenPolicyChannel();
    const auto calls = transport_.Calls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].requestArenaCapacity, 16U);
    EXPECT_EQ(calls[0].responseArenaCapacity, 32U);
    EXPECT_FALSE(calls[1].hasRequestArena);
    EXPECT_FALSE(calls[1].hasResponseArena);
}

TEST_F(CallFrame, PlainCallWithoutOutputsReturnsTheServicesCodeAsItStands) {
    for (const int code : {0, 1, 2, INT_MAX, -1, INT_MIN, kUnspecified}) {
        AnswerStop(code);
        EXPECT_EQ(Stop(), code);
    }
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(CallFrame, PlainCallReportsTransportFailures) {
    for (const int status : kFrameStatuses) {
        logger_.Clear();
        AnswerStop(0, status);
        EXPECT_EQ(Stop(), kUnspecified);
        EXPECT_THAT(logger_.Records(),
                    ElementsAre(LogRecord{
                        4, "ipc_transfer_call", 87, "IpcTransferCall",
                        "Ipc call Stop terminated with a error " + std::to_string(status)}));
    }
}

TEST_F(CallFrame, PlainCallWithOutputsStoresThemForEveryCodeThatIsNoFailure) {
    for (const int code : {0, 1, 2, INT_MAX}) {
        AnswerHash(0x1122334455667788, code);
        std::uint64_t hash = 1;
        EXPECT_EQ(GetPolicyHash([&](const auto& response) { hash = response.hash; }), 0) << code;
        EXPECT_EQ(hash, 0x1122334455667788U) << code;
    }
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(CallFrame, PlainCallWithOutputsLeavesThemForFailures) {
    for (const int code : {-1, INT_MIN, kUnspecified, static_cast<int>(0x80000045U)}) {
        AnswerHash(2, code);
        std::uint64_t hash = 1;
        EXPECT_EQ(GetPolicyHash([&](const auto& response) { hash = response.hash; }), code);
        EXPECT_EQ(hash, 1U) << code;
    }
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(CallFrame, PlainCallWithOutputsLeavesThemForTransportFailures) {
    for (const int status : kFrameStatuses) {
        logger_.Clear();
        AnswerHash(2, 0, status);
        std::uint64_t hash = 1;
        EXPECT_EQ(GetPolicyHash([&](const auto& response) { hash = response.hash; }), kUnspecified);
        EXPECT_EQ(hash, 1U) << status;
        EXPECT_THAT(logger_.Records(),
                    ElementsAre(LogRecord{4, "ipc_transfer_call", 87, "IpcTransferCall",
                                          "Ipc call GetPolicyHash terminated with a error " +
                                              std::to_string(status)}));
    }
}

TEST_F(CallFrame, PlainCallLetsWhatAStoreThrowsThrough) {
    AnswerHash(2, 0);
    EXPECT_THROW(GetPolicyHash([](const auto&) { throw std::out_of_range("stored badly"); }),
                 std::out_of_range);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(CallFrame, PlainCallHandsOnBothArenas) {
    transport_.SetDefault({});
    common::StackArena<16> requestArena;
    common::StackArena<32> responseArena;
    qx::ResultResponse response{};
    IpcTransferCall("Stop", controller_.ops->Stop, controller_, emptyRequest_, requestArena.Get(),
                    response, responseArena.Get());
    const auto calls = transport_.Calls();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].requestArenaCapacity, 16U);
    EXPECT_EQ(calls[0].responseArenaCapacity, 32U);
}

}  // namespace
}  // namespace zam_connector::proxy
