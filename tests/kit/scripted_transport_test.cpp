#include "zam_connector_testing/scripted_transport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "qx/conn_command_sender.h"
#include "qx/zam_data_provider.h"

namespace zam_connector::testing {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using GetDataRequest = qx_zam_connector_ZamDataProvider_GetData_req;
using GetDataResponse = qx_zam_connector_ZamDataProvider_GetData_rsp;

/// One call of an operation that takes a request field, a response field and a response arena.
class ScriptedTransportTest : public ::testing::Test {
protected:
    ScriptedTransportTest() {
        qx_zam_connector_ZamDataProvider_proxy_init(&record_, transport_.Get(), 0x0102);
        vd_arena_init(&arena_, arenaBytes_, sizeof(arenaBytes_));
        request_.channel = 0x1122334455667788;
    }

    int Call(vd_arena* responseArena) {
        return record_.ops->GetData(&record_, &request_, nullptr, &response_, responseArena);
    }
    int Call() { return Call(&arena_); }

    ScriptedTransport transport_;
    qx_zam_connector_ZamDataProvider_proxy record_{};
    GetDataRequest request_{};
    GetDataResponse response_{};
    unsigned char arenaBytes_[8] = {};
    vd_arena arena_{};
};

TEST_F(ScriptedTransportTest, RecordsHeadersAndFixedParts) {
    transport_.SetDefault({});
    request_.header.reserved[1] = 0x55;
    response_.params.records.length = 0x0A;
    Call();
    const auto calls = transport_.Calls();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].transport, transport_.Get());
    EXPECT_EQ(calls[0].requestHeader.riid, 0x0102U);
    EXPECT_EQ(calls[0].requestHeader.operation, 2U);
    EXPECT_EQ(calls[0].requestHeader.fixedSize, 32U);
    EXPECT_EQ(calls[0].requestHeader.reserved[1], 0x55U);
    EXPECT_EQ(calls[0].responseHeader.fixedSize, 40U);
    EXPECT_THAT(calls[0].request, ElementsAre(0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11));
    EXPECT_THAT(calls[0].response, ElementsAre(0, 0, 0, 0, 0x0A, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    const auto typed = calls[0].As<GetDataRequest>();
    ASSERT_TRUE(typed.has_value());
    EXPECT_EQ(typed->channel, request_.channel);
    EXPECT_EQ(typed->header.operation, 2U);
    EXPECT_FALSE(calls[0].As<GetDataResponse>().has_value()) << "another size was taken";
}

TEST_F(ScriptedTransportTest, RecordsArenasAndNullArenas) {
    transport_.SetDefault({});
    Call(nullptr);
    std::memcpy(vd_arena_alloc(&arena_, 3, 1), "abc", 3);
    record_.ops->GetData(&record_, &request_, &arena_, &response_, nullptr);
    vd_arena_reset(&arena_);
    Call();
    const auto calls = transport_.Calls();
    ASSERT_EQ(calls.size(), 3U);
    EXPECT_FALSE(calls[0].hasRequestArena);
    EXPECT_FALSE(calls[0].hasResponseArena);
    EXPECT_TRUE(calls[1].hasRequestArena);
    EXPECT_FALSE(calls[1].hasResponseArena);
    EXPECT_EQ(calls[1].requestArenaCapacity, 8U);
    EXPECT_THAT(calls[1].requestArena, ElementsAre('a', 'b', 'c'));
    EXPECT_FALSE(calls[2].hasRequestArena);
    EXPECT_TRUE(calls[2].hasResponseArena);
    EXPECT_EQ(calls[2].responseArenaCapacity, 8U);
    EXPECT_EQ(calls[2].responseArenaUsed, 0U);
    EXPECT_FALSE(calls[2].responseArenaIsZero) << "the reset alone leaves the bytes";
}

TEST_F(ScriptedTransportTest, AnswersWithStatusFixedPartAndArena) {
    GetDataResponse answer{};
    answer.header.riid = 0x7777;
    answer.sessionStatus = -3;
    answer.params.records = {1, 4};
    transport_.Enqueue(AnswerWith(answer, "12345", 9));
    EXPECT_EQ(Call(), 9);
    EXPECT_EQ(response_.sessionStatus, -3);
    EXPECT_EQ(response_.params.records.length, 4U);
    EXPECT_EQ(response_.header.riid, 0x0102U) << "the answer's header was taken over";
    EXPECT_EQ(arena_.used, 5U);
    EXPECT_THAT(arenaBytes_, ElementsAre('1', '2', '3', '4', '5', 0, 0, 0));
}

TEST_F(ScriptedTransportTest, ZeroFillsWhatTheAnswerDoesNotCover) {
    std::memset(static_cast<void*>(&response_), 0xA5, sizeof(response_));
    transport_.Enqueue({0, {0x01}, {}});
    std::memcpy(vd_arena_alloc(&arena_, 8, 1), "oldbytes", 8);
    EXPECT_EQ(Call(), 0);
    EXPECT_EQ(response_.params.records.offset, 1U);
    EXPECT_EQ(response_.params.records.length, 0U);
    EXPECT_EQ(response_.sessionStatus, 0);
    EXPECT_EQ(arena_.used, 0U);
    EXPECT_THAT(arenaBytes_, Each(0));
}

TEST_F(ScriptedTransportTest, AnswersFromQueueThenResponderThenDefault) {
    transport_.Enqueue(FailWith(1));
    transport_.Enqueue(FailWith(2));
    transport_.SetDefault(FailWith(9));
    int asked = 0;
    transport_.SetResponder([&](const RecordedCall& call) -> std::optional<ScriptedAnswer> {
        ++asked;
        EXPECT_EQ(call.requestHeader.operation, 2U);
        return asked == 1 ? std::optional(FailWith(5)) : std::nullopt;
    });
    EXPECT_EQ(Call(), 1);
    EXPECT_EQ(Call(), 2);
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(Call(), 5);
    EXPECT_EQ(Call(), 9);
    transport_.SetResponder({});
    EXPECT_EQ(Call(), 9);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(transport_.Calls().size(), 5U);
    EXPECT_THAT(transport_.Faults(), IsEmpty());
}

TEST_F(ScriptedTransportTest, FailsACallThatNothingAnswers) {
    EXPECT_EQ(Call(), kNoAnswerScripted);
    EXPECT_THAT(transport_.Faults(), ElementsAre("riid 258, operation 2: no answer is scripted"));
    EXPECT_EQ(transport_.Calls().size(), 1U);
}

TEST_F(ScriptedTransportTest, FailsAnAnswerThatExceedsTheArena) {
    std::memset(static_cast<void*>(&response_), 0xA5, sizeof(response_));
    transport_.Enqueue({0, Bytes(16, 0x11), Bytes(8, 0x22)});
    EXPECT_EQ(Call(), 0) << "an answer that fits exactly was refused";
    transport_.Enqueue({0, Bytes(16, 0x33), Bytes(9, 0x44)});
    EXPECT_EQ(Call(), kAnswerDoesNotFit);
    EXPECT_THAT(arenaBytes_, Each(0x22)) << "something was written";
    EXPECT_EQ(response_.sessionStatus, 0x11) << "something was written";
    transport_.Enqueue({0, {}, Bytes(1, 0x44)});
    EXPECT_EQ(Call(nullptr), kAnswerDoesNotFit);
    EXPECT_THAT(transport_.Faults(), ElementsAre(HasSubstr("9 arena bytes, the response arena "
                                                           "holds 8"),
                                                 HasSubstr("holds 0")));
}

TEST_F(ScriptedTransportTest, FailsAnAnswerThatExceedsTheResponse) {
    transport_.Enqueue({0, Bytes(17, 0x33), {}});
    EXPECT_EQ(Call(), kAnswerDoesNotFit);
    EXPECT_THAT(transport_.Faults(), ElementsAre(HasSubstr("17 bytes, the response 16")));
}

TEST_F(ScriptedTransportTest, FailsACallWhoseResponderThrows) {
    transport_.SetResponder([](const RecordedCall&) -> std::optional<ScriptedAnswer> {
        throw std::runtime_error("told so");
    });
    EXPECT_EQ(Call(), kResponderThrew);
    transport_.SetResponder([](const RecordedCall&) -> std::optional<ScriptedAnswer> { throw 5; });
    EXPECT_EQ(Call(), kResponderThrew);
    EXPECT_THAT(transport_.Faults(), ElementsAre(HasSubstr("told so"), HasSubstr("threw")));
}

TEST_F(ScriptedTransportTest, FailsACallWithoutWholeMessages) {
    transport_.SetDefault({});
    VdZorTransport* const transport = transport_.Get();
    vd_message_header good{1, 2, sizeof(vd_message_header), {}};
    vd_message_header small{1, 2, sizeof(vd_message_header) - 1, {}};
    EXPECT_EQ(transport->ops->call(transport, &good, nullptr, &good, nullptr), 0);
    EXPECT_EQ(transport->ops->call(transport, &small, nullptr, &good, nullptr), kMalformedCall);
    EXPECT_EQ(transport->ops->call(transport, &good, nullptr, &small, nullptr), kMalformedCall);
    EXPECT_EQ(transport->ops->call(transport, nullptr, nullptr, &good, nullptr), kMalformedCall);
    EXPECT_EQ(transport->ops->call(transport, &good, nullptr, nullptr, nullptr), kMalformedCall);
    EXPECT_EQ(transport_.Calls().size(), 5U);
    EXPECT_EQ(transport_.Faults().size(), 4U);
}

TEST_F(ScriptedTransportTest, FailsACallWhoseArenasAreNone) {
    transport_.SetDefault({});
    vd_arena overfull = arena_;
    overfull.used = overfull.capacity + 1;
    vd_arena nowhere{};
    nowhere.capacity = 8;
    vd_arena empty{};
    for (vd_arena* const arena : {&overfull, &nowhere}) {
        EXPECT_EQ(Call(arena), kMalformedCall);
        EXPECT_EQ(record_.ops->GetData(&record_, &request_, arena, &response_, nullptr),
                  kMalformedCall);
    }
    EXPECT_EQ(Call(&empty), 0);
    EXPECT_EQ(transport_.Faults().size(), 4U);
}

TEST_F(ScriptedTransportTest, TakesTheCallsOfAttachedTransports) {
    transport_.SetDefault({});
    VdZorTransport other{};
    other.handle = 77;
    transport_.Attach(&other);
    EXPECT_EQ(other.handle, 0U);
    record_.transport = &other;
    EXPECT_EQ(Call(), 0);
    ASSERT_EQ(transport_.Calls().size(), 1U);
    EXPECT_EQ(transport_.Calls()[0].transport, &other);
}

TEST_F(ScriptedTransportTest, RunsTheResponderWithoutALock) {
    transport_.SetResponder([this](const RecordedCall&) -> std::optional<ScriptedAnswer> {
        EXPECT_EQ(transport_.Calls().size(), 1U) << "the call under way is missing";
        transport_.Enqueue(FailWith(8));
        return FailWith(7);
    });
    EXPECT_EQ(Call(), 7);
    EXPECT_EQ(Call(), 8);
}

TEST_F(ScriptedTransportTest, AnswersManyThreads) {
    constexpr int kThreads = 8;
    constexpr int kCalls = 200;
    transport_.SetResponder([](const RecordedCall& call) -> std::optional<ScriptedAnswer> {
        GetDataResponse answer{};
        answer.params.records.offset =
            static_cast<std::uint32_t>(call.As<GetDataRequest>()->channel);
        return AnswerWith(answer);
    });
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int call = 0; call < kCalls; ++call) {
                GetDataRequest request{};
                GetDataResponse response{};
                request.channel = thread * kCalls + call;
                const int status =
                    record_.ops->GetData(&record_, &request, nullptr, &response, nullptr);
                if (status != 0 ||
                    response.params.records.offset != static_cast<std::uint32_t>(request.channel)) {
                    ++wrong;
                }
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
}  // namespace zam_connector::testing
