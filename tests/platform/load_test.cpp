#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "support/scoped_environment.h"
#include "support/test_server.h"
#include "vd/service_locator.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using zam_test::ScopedEnvironment;

constexpr std::uint64_t kThreads = 8;
constexpr std::uint64_t kCallsPerThread = 20000;

class Load : public ::testing::Test {
protected:
    void SetUp() override {
        VdZorTransport_Init(&transport_, ServiceLocatorConnect(kTestService), 0, 0);
        ASSERT_NE(transport_.handle, VD_ZOR_INVALID_HANDLE);
    }

    static void OnThreads(const std::function<void(std::uint64_t)>& work) {
        std::vector<std::unique_ptr<Background>> threads;
        for (std::uint64_t thread = 0; thread < kThreads; ++thread) {
            threads.push_back(std::make_unique<Background>([&work, thread] { work(thread); }));
        }
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_;
    ScopedEnvironment runtime_{"ZAM_RUNTIME_DIR", server_.Directory()};
    VdZorTransport transport_{};
};

TEST_F(Load, EightThreadsGetTheirOwnAnswers) {
    server_.Endpoint().Custom([](const Request& request, Responder responder) {
        TestMessage message{};
        message.value = request.As<TestMessage>().value * 3 + 1;
        responder.Answer(message, request.arena.base, request.arena.used);
    });
    OnThreads([this](std::uint64_t thread) {
        TestCall call(kCustom);
        call.ResponseArena(64);
        for (std::uint64_t index = 0; index < kCallsPerThread; ++index) {
            const std::uint64_t value = thread << 32U | index;
            call.request.value = value;
            ASSERT_EQ(call.On(transport_), kStatusOk);
            ASSERT_EQ(call.Value(), value * 3 + 1);
        }
    });
    EXPECT_LE(server_.Connections(), kThreads + 1) << "no more than calls at once";
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(Load, EightThreadsGetTheirOwnArenas) {
    OnThreads([this](std::uint64_t thread) {
        for (std::uint32_t index = 0; index < 300; ++index) {
            const std::uint32_t seed = static_cast<std::uint32_t>(thread) * 1000 + index;
            const Bytes arena = Pattern(seed * 37 % 50000, seed);
            TestCall call(kEcho, seed);
            call.RequestArena(arena).ResponseArena(50000);
            ASSERT_EQ(call.On(transport_), kStatusOk);
            ASSERT_EQ(call.Value(), seed);
            ASSERT_TRUE(call.Answered() == arena);
        }
    });
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(Load, ConnectionsThatBreakDisturbNoOtherThread) {
    OnThreads([this](std::uint64_t thread) {
        for (std::uint64_t index = 0; index < 300; ++index) {
            TestCall call(kEcho, index);
            if (thread % 2 == 0) {
                ASSERT_EQ(call.On(transport_), kStatusOk);
                ASSERT_EQ(call.Value(), index);
            } else if (index % 10 == 0) {
                ASSERT_EQ(TestCall(kDrop).On(transport_), kStatusBroken);
            }
        }
    });
}

TEST_F(Load, ACallThatBlocksHoldsUpNoOther) {
    std::vector<std::unique_ptr<Background>> blocked;
    for (int index = 0; index < 20; ++index) {
        blocked.push_back(std::make_unique<Background>(
            [this] { EXPECT_EQ(TestCall(kHold, 1).On(transport_), kStatusOk); }));
    }
    server_.Endpoint().AwaitHeld(20);
    OnThreads([this](std::uint64_t) {
        for (std::uint64_t index = 0; index < 100; ++index) {
            ASSERT_EQ(TestCall(kEcho, index).On(transport_), kStatusOk);
        }
    });
    server_.Endpoint().ReleaseAll();
}

}  // namespace
}  // namespace zam_platform::testing
