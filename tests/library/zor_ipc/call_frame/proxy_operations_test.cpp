#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "library/zor_ipc/call_frame/proxy_fixture.h"

namespace zam_connector {
namespace {

using test::kUnspecified;
using testing::Bytes;
using testing::FailWith;
using testing::RecordedCall;
using testing::ScriptedAnswer;

/// The proxies, as an operation is called on them.
struct Interfaces {
    IZamConnController& controller;
    IZamConnSettingsHolder& settingsHolder;
    IZamConnCommandSender& commandSender;
};

/// One of the seven operations, and what its messages look like.
struct Operation {
    const char* file;
    const char* name;
    const char* failureText;  ///< the status follows
    std::uint16_t riid;
    std::uint16_t number;
    std::uint32_t requestSize;
    std::uint32_t responseSize;
    std::uint32_t requestArena;    ///< 0: null is passed
    std::size_t resultCodeOffset;  ///< behind the response's header
    std::function<int(const Interfaces&)> call;
};

const Operation kOperations[] = {
    {"zam_conn_controller_proxy", "Start",
     "ZamConnControllerProxy: ipc call Start terminated with a error ", test::kControllerRiid, 0,
     72, 32, 1360, 0, [](const Interfaces& interfaces) { return interfaces.controller.Start({}); }},
    {"zam_conn_controller_proxy", "Stop",
     "ZamConnControllerProxy: ipc call Stop terminated with a error ", test::kControllerRiid, 1, 24,
     32, 0, 0, [](const Interfaces& interfaces) { return interfaces.controller.Stop(); }},
    {"zam_conn_controller_proxy", "GetState",
     "ZamConnControllerProxy: ipc call GetState terminated with a error ", test::kControllerRiid, 2,
     24, 32, 0, 4,
     [](const Interfaces& interfaces) {
         ZamConnectorState state{};
         return interfaces.controller.GetState(state);
     }},
    {"zam_conn_settings_holder_proxy", "Set",
     "Zam_conn_settings_holder proxy: ipc call Set terminated with a error ",
     test::kSettingsHolderRiid, 0, 72, 32, 0, 0,
     [](const Interfaces& interfaces) { return interfaces.settingsHolder.Set({}); }},
    {"zam_conn_settings_holder_proxy", "Get",
     "Zam_conn_settings_holder proxy: ipc call Get terminated with a error ",
     test::kSettingsHolderRiid, 1, 24, 80, 0, 48,
     [](const Interfaces& interfaces) {
         ZamConnectorSettings settings;
         return interfaces.settingsHolder.Get(settings);
     }},
    {"zam_conn_command_sender_proxy", "PostZamEvent",
     "ZamConnCommandSenderProxy: ipc call PostZamEvent terminated with a error ",
     test::kCommandSenderRiid, 0, 32, 32, 128, 0,
     [](const Interfaces& interfaces) { return interfaces.commandSender.PostZamEvent("event"); }},
    {"zam_conn_command_sender_proxy", "ScheduleSync",
     "ZamConnCommandSenderProxy: ipc call ScheduleSync terminated with a error ",
     test::kCommandSenderRiid, 1, 24, 32, 0, 0,
     [](const Interfaces& interfaces) { return interfaces.commandSender.ScheduleSync(); }},
};

ScriptedAnswer AnswerWithCode(const Operation& operation, int code) {
    ScriptedAnswer answer;
    answer.response.resize(operation.resultCodeOffset + sizeof(code));
    std::memcpy(answer.response.data() + operation.resultCodeOffset, &code, sizeof(code));
    return answer;
}

/// What holds for every operation of the three proxies.
class ConnectionControlOperation : public test::ProxyTest {
protected:
    Interfaces interfaces_{controller_, settingsHolder_, commandSender_};
};

TEST_F(ConnectionControlOperation, IsOneCallOfItsOwnOperation) {
    transport_.SetDefault({});
    std::size_t calls = 0;
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.name);
        EXPECT_EQ(operation.call(interfaces_), 0);
        ASSERT_EQ(transport_.Calls().size(), ++calls);
        const RecordedCall call = transport_.Calls().back();
        EXPECT_EQ(call.transport, transport_.Get());
        EXPECT_EQ(call.requestHeader.riid, operation.riid);
        EXPECT_EQ(call.requestHeader.operation, operation.number);
        EXPECT_EQ(call.requestHeader.fixedSize, operation.requestSize);
        EXPECT_EQ(call.responseHeader.riid, operation.riid);
        EXPECT_EQ(call.responseHeader.operation, operation.number);
        EXPECT_EQ(call.responseHeader.fixedSize, operation.responseSize);
    }
    ExpectNoRecord();
}

TEST_F(ConnectionControlOperation, HasZeroFilledMessagesAndItsArenas) {
    transport_.SetDefault({});
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.name);
        operation.call(interfaces_);
        const RecordedCall call = transport_.Calls().back();
        for (const std::uint64_t word :
             {call.requestHeader.reserved[0], call.requestHeader.reserved[1],
              call.responseHeader.reserved[0], call.responseHeader.reserved[1]}) {
            EXPECT_EQ(word, 0U);
        }
        EXPECT_EQ(call.response, Bytes(operation.responseSize - 24, 0));
        EXPECT_EQ(call.hasRequestArena, operation.requestArena != 0);
        EXPECT_EQ(call.requestArenaCapacity, operation.requestArena);
        EXPECT_FALSE(call.hasResponseArena);
    }
}

TEST_F(ConnectionControlOperation, ReturnsTheServicesCodeAsItStands) {
    for (const Operation& operation : kOperations) {
        for (const int code : test::kResultCodes) {
            transport_.Enqueue(AnswerWithCode(operation, code));
            EXPECT_EQ(operation.call(interfaces_), code) << operation.name;
        }
    }
    ExpectNoRecord();
    EXPECT_EQ(logger_.IsEnabledCalls(), 0);
}

TEST_F(ConnectionControlOperation, TakesEveryTransportStatusForTheUniformFailure) {
    for (const Operation& operation : kOperations) {
        for (const int status : test::kTransportStatuses) {
            SCOPED_TRACE(::testing::Message() << operation.name << ", status " << status);
            // A failed transport may leave an answer behind, which is not to be believed.
            ScriptedAnswer answer = AnswerWithCode(operation, 1);
            answer.status = status;
            transport_.Enqueue(answer);
            EXPECT_EQ(operation.call(interfaces_), kUnspecified);
            ExpectFailureRecord(operation.file, operation.name,
                                operation.failureText + std::to_string(status));
        }
    }
}

TEST_F(ConnectionControlOperation, FailsTheSameWithTheLevelOff) {
    for (const Operation& operation : kOperations) {
        for (const int threshold : {3, 4, 5}) {
            SCOPED_TRACE(::testing::Message() << operation.name << ", threshold " << threshold);
            logger_.Clear();
            logger_.SetThreshold(threshold);
            transport_.Enqueue(FailWith(-9));
            EXPECT_EQ(operation.call(interfaces_), kUnspecified);
            EXPECT_EQ(logger_.IsEnabledCalls(), 1);
            EXPECT_EQ(logger_.Records().size(), threshold <= 4 ? 1U : 0U);
        }
    }
}

TEST_F(ConnectionControlOperation, MayRunOnManyThreadsAtOnce) {
    constexpr int kThreads = 8;
    constexpr int kCalls = 100;
    // Every answer carries what identifies its request: the length of the event's text.
    transport_.SetResponder([](const RecordedCall& call) -> std::optional<ScriptedAnswer> {
        const auto code = static_cast<std::int32_t>(call.requestArena.size());
        qx::ResultResponse response{};
        response.resultCode = code;
        return testing::AnswerWith(response);
    });
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            const auto size = static_cast<std::size_t>(10 * thread + 1);
            for (int call = 0; call < kCalls; ++call) {
                const int code = commandSender_.PostZamEvent(std::string(size, 'e'));
                wrong += code == static_cast<int>(size) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(transport_.Calls().size(), std::size_t{kThreads * kCalls});
}

}  // namespace
}  // namespace zam_connector
