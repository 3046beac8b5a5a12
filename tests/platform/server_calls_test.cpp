#include <gtest/gtest.h>

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_platform::testing {
namespace {

class ServerCalls : public ::testing::Test {
protected:
    std::string LastRecord() const {
        const auto records = logger_.Records();
        return records.empty() ? "" : records.back().text;
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_;
    std::unique_ptr<ServiceLink> link_ = LinkTo(server_);
};

void AnswerWith(Responder& responder, std::uint64_t value) {
    TestMessage message{};
    message.value = value;
    responder.Answer(message);
}

TEST_F(ServerCalls, AreAnsweredAtOnce) {
    TestCall call(kEcho, 0xFEDCBA9876543210);
    call.RequestArena(Pattern(1000)).ResponseArena(1000);
    EXPECT_EQ(call.On(*link_), kStatusOk);
    EXPECT_EQ(call.Value(), 0xFEDCBA9876543210);
    EXPECT_EQ(call.Answered(), Pattern(1000));
}

TEST_F(ServerCalls, AreAnsweredLaterFromTheLoop) {
    server_.Endpoint().Custom([this](const Request& request, Responder responder) {
        const std::uint64_t value = request.As<TestMessage>().value;
        auto timer = std::make_shared<asio::steady_timer>(server_.Get().Context(),
                                                          std::chrono::milliseconds(5));
        auto kept = std::make_shared<Responder>(std::move(responder));
        timer->async_wait(
            [timer, kept, value](const std::error_code&) { AnswerWith(*kept, value + 1); });
    });
    for (std::uint64_t value = 0; value < 5; ++value) {
        TestCall call(kCustom, value);
        EXPECT_EQ(call.On(*link_), kStatusOk);
        EXPECT_EQ(call.Value(), value + 1);
    }
}

TEST_F(ServerCalls, AreAnsweredLaterFromAWorker) {
    WorkerPool workers(2, 2, 100);
    server_.Endpoint().Custom([&workers](const Request& request, Responder responder) {
        const std::uint64_t value = request.As<TestMessage>().value;
        auto kept = std::make_shared<Responder>(std::move(responder));
        workers.Post(value % 2, [kept, value] {
            TestMessage message{};
            message.value = value * 2;
            const Bytes arena = Pattern(value * 1000);
            kept->Answer(message, arena.data(), static_cast<std::uint32_t>(arena.size()));
        });
    });
    for (std::uint64_t value = 0; value < 50; ++value) {
        TestCall call(kCustom, value);
        call.ResponseArena(50000);
        ASSERT_EQ(call.On(*link_), kStatusOk);
        EXPECT_EQ(call.Value(), value * 2);
        EXPECT_EQ(call.Answered(), Pattern(value * 1000));
    }
}

TEST_F(ServerCalls, ShowTheHandlerTheRequestAndItsClient) {
    const SessionToken token = [] {
        SessionToken made;
        made.fill(0x5A);
        return made;
    }();
    server_.Endpoint().Custom([&](const Request& request, Responder responder) {
        EXPECT_EQ(request.operation, kCustom);
        EXPECT_EQ(request.rule->name, "Custom");
        EXPECT_EQ(request.client.token, token);
        EXPECT_EQ(request.client.user, ::geteuid());
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(request.message) % 8, 0U);
        EXPECT_EQ(request.message->fixedSize, sizeof(TestMessage));
        EXPECT_EQ(request.arena.used, 3U);
        EXPECT_EQ(request.arena.capacity, 3U);
        EXPECT_EQ(std::memcmp(request.arena.base, "abc", 3), 0);
        AnswerWith(responder, 1);
    });
    const RawSocket client = server_.Greet(0x5A);
    client.Send(CallFrame(1, kCustom, 0, BytesOf("abc")));
    EXPECT_EQ(ToHex(client.Read(64)), ToHex(AnswerFrame(1, 1, {}, kCustom)));
}

TEST_F(ServerCalls, FailWithTheHandlersStatus) {
    for (const std::int32_t status : {20, 3, 1000, -5}) {
        EXPECT_EQ(TestCall(kFail, static_cast<std::uint32_t>(status)).On(*link_), status);
    }
    EXPECT_EQ(server_.Connections(), 1U) << "the connection is good for the next call";
}

TEST_F(ServerCalls, CanBeDropped) {
    EXPECT_EQ(TestCall(kDrop).On(*link_), kStatusBroken);
    EXPECT_EQ(server_.Connections(), 0U);
    EXPECT_EQ(TestCall(kEcho).On(*link_), kStatusOk);
}

TEST_F(ServerCalls, CanBeDroppedByAWorker) {
    WorkerPool workers(1, 1, 10);
    server_.Endpoint().Custom([&workers](const Request&, Responder responder) {
        auto kept = std::make_shared<Responder>(std::move(responder));
        workers.Post(0, [kept] { kept->Drop(); });
    });
    EXPECT_EQ(TestCall(kCustom).On(*link_), kStatusBroken);
}

TEST_F(ServerCalls, FailWhenTheirResponderIsDestroyed) {
    EXPECT_EQ(TestCall(kForget).On(*link_), kStatusUnanswered);
    EXPECT_EQ(LastRecord(), "Forget was given up without an answer");
    EXPECT_EQ(TestCall(kEcho).On(*link_), kStatusOk);
}

TEST_F(ServerCalls, FailWhenTheHandlerThrows) {
    server_.Endpoint().Custom([](const Request&, Responder) {
        throw std::runtime_error("the handler failed in this test");
    });
    EXPECT_EQ(TestCall(kCustom).On(*link_), kStatusUnanswered);
    Await("the record", [this] { return logger_.Records().size() == 2; });
    EXPECT_EQ(LastRecord(), "Custom of test.endpoint: the handler failed in this test");
    EXPECT_EQ(TestCall(kEcho).On(*link_), kStatusOk);
}

TEST_F(ServerCalls, FailWhenTheAnswerBreaksTheOperationsRule) {
    server_.Endpoint().Custom([](const Request& request, Responder responder) {
        TestMessage message{};
        const Bytes arena(kMaxArenaBytes + 1);
        const bool wrongSize = request.As<TestMessage>().value == 0;
        responder.AnswerBytes(&message.header, wrongSize ? 24 : 32, arena.data(),
                              wrongSize ? 0 : kMaxArenaBytes + 1);
    });
    EXPECT_EQ(TestCall(kCustom, 0).On(*link_), kStatusUnanswered);
    EXPECT_EQ(LastRecord(), "Custom: answer of 24 and 0 bytes, not 32 and at most 1048576");
    EXPECT_EQ(TestCall(kCustom, 1).On(*link_), kStatusUnanswered);
    EXPECT_EQ(LastRecord(), "Custom: answer of 32 and 1048577 bytes, not 32 and at most 1048576");
}

TEST_F(ServerCalls, EndQuietlyWhenTheClientHasGone) {
    RawSocket client = server_.Greet();
    client.Send(CallFrame(1, kHold, 7));
    server_.Endpoint().AwaitHeld(1);
    client.Close();
    Await("the connection's end", [this] { return server_.Connections() == 0; });
    server_.Endpoint().ReleaseAll();
    EXPECT_EQ(TestCall(kEcho).On(*link_), kStatusOk);
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(ServerCalls, HoldUpNoOtherWhileTheyWait) {
    Background blocked([this] { EXPECT_EQ(TestCall(kHold, 5).On(*link_), kStatusOk); });
    server_.Endpoint().AwaitHeld(1);
    for (std::uint64_t value = 0; value < 200; ++value) {
        TestCall call(kEcho, value);
        ASSERT_EQ(call.On(*link_), kStatusOk);
        ASSERT_EQ(call.Value(), value);
    }
    EXPECT_EQ(server_.Connections(), 2U);
    server_.Endpoint().ReleaseAll();
}

TEST_F(ServerCalls, AreRefusedOnTheSameConnectionWhileOneWaits) {
    const RawSocket client = server_.Greet();
    client.Send(CallFrame(1, kHold, 7));
    server_.Endpoint().AwaitHeld(1);
    client.Send(CallFrame(2, kEcho, 7));
    EXPECT_EQ(ToHex(client.ReadToEnd()), ToHex(StatusFrame(FrameKind::Refusal, 0, 19)));
    EXPECT_EQ(LastRecord().find("client of user "), 0U);
    EXPECT_NE(LastRecord().find(
                  ": call while another is in flight on the same connection: connection closed"),
              std::string::npos);
    server_.Endpoint().ReleaseAll();
}

TEST_F(ServerCalls, MayBeSentAheadOfAnAnswerThatComesAtOnce) {
    const RawSocket client = server_.Greet();
    client.Send(CallFrame(1, kEcho, 7) + CallFrame(2, kEcho, 8) + LookupFrame(kTestEndpoint, 3));
    EXPECT_EQ(ToHex(client.Read(64)), ToHex(AnswerFrame(1, 7, {}, kEcho)));
    EXPECT_EQ(ToHex(client.Read(64)), ToHex(AnswerFrame(2, 8, {}, kEcho)));
    EXPECT_EQ(client.ReadFrame().prelude.kind, FrameKind::LookupAnswer);
}

/// Passes an answer on after a function has changed it.
class Changing final : public AnswerInterceptor {
public:
    using Function = std::function<void(AnswerParts&, Responder&)>;
    explicit Changing(Function change) : change_(std::move(change)) {}

    void OnAnswer(AnswerParts answer, Responder responder) override { change_(answer, responder); }

private:
    Function change_;
};

class Interceptor : public ServerCalls {
protected:
    /// Makes the handler answer with the request's value and the arena "abc", through `change`.
    void Intercept(Changing::Function change) {
        server_.Endpoint().Custom([change](const Request& request, Responder responder) {
            responder.Intercept(std::make_unique<Changing>(change));
            const std::uint64_t value = request.As<TestMessage>().value;
            if (value == 99) {
                responder.Fail(21);
            } else if (value != 98) {
                TestMessage message{};
                message.value = value;
                responder.Answer(message, "abc", 3);
            }
        });
        call_.ResponseArena(16);
    }

    TestCall call_{kCustom, 4};
};

TEST_F(Interceptor, SeesTheAnswerAndPassesItOn) {
    Intercept([](AnswerParts& answer, Responder& responder) {
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(answer.message, MessageBytes(MakeMessage(kCustom, 4)));
        EXPECT_EQ(answer.arena, BytesOf("abc"));
        answer.arena[1] = 'X';
        responder.AnswerBytes(reinterpret_cast<vd_message_header*>(answer.message.data()),
                              static_cast<std::uint32_t>(answer.message.size()),
                              answer.arena.data(), 3);
    });
    EXPECT_EQ(call_.On(*link_), kStatusOk);
    EXPECT_EQ(call_.Value(), 4U);
    EXPECT_EQ(call_.Answered(), BytesOf("aXc"));
}

TEST_F(Interceptor, PutsAFailureInTheAnswersPlace) {
    Intercept([](AnswerParts&, Responder& responder) { responder.Fail(33); });
    EXPECT_EQ(call_.On(*link_), 33);
}

TEST_F(Interceptor, DropsTheConnectionAfterTheWorkWasDone) {
    Intercept([](AnswerParts&, Responder& responder) { responder.Drop(); });
    EXPECT_EQ(call_.On(*link_), kStatusBroken);
}

TEST_F(Interceptor, SeesAFailureWithoutParts) {
    Intercept([](AnswerParts& answer, Responder& responder) {
        EXPECT_EQ(answer.status, 21);
        EXPECT_TRUE(answer.message.empty());
        EXPECT_TRUE(answer.arena.empty());
        responder.Fail(answer.status + 1);
    });
    EXPECT_EQ(TestCall(kCustom, 99).On(*link_), 22);
}

TEST_F(Interceptor, DoesNotSeeAResponderThatIsGivenUp) {
    Intercept([](AnswerParts&, Responder&) { ADD_FAILURE() << "intercepted"; });
    EXPECT_EQ(TestCall(kCustom, 98).On(*link_), kStatusUnanswered);
}

}  // namespace
}  // namespace zam_platform::testing
