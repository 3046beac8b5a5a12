#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "daemon_fixture.h"
#include "notices/error_pacing.h"
#include "raw_notifier.h"
#include "support/eventually.h"

namespace zam_service {
namespace {

using zam_service::testing::Noticed;
using zam_service::testing::RawNotifier;
using zam_service::testing::Value;
using zam_test::Eventually;
using Clock = std::chrono::steady_clock;

constexpr Noticed kNothing = zam_service::testing::NoticeStatus(1);
constexpr Noticed kInvalid = zam_service::testing::NoticeStatus(-1);
constexpr std::uint32_t kServerDataKind = 4;

/// Notifiers of a daemon, reached by connections of the test's own.
class NotifierTest : public zam_service::testing::DaemonFixture {
protected:
    RawNotifier Data(std::uint32_t client = 1) const {
        return {daemon_->SocketPath(), "ZamDataNotifier", client};
    }

    /// A change of data, kind 4.
    void Change() {
        data_.Write("server_data.json", R"({"version_major": )" + std::to_string(++version_) + "}");
    }

    void BeginWithRule(const std::string& operation, const std::string& effect) {
        BeginWithFault(R"({"endpoint": "zamDataNotifier", "operation": ")" + operation + "\", " +
                       effect + "}");
    }

    int version_ = 0;
};

TEST_F(NotifierTest, KeepsACallUntilThereIsSomethingToTell) {
    Begin();
    RawNotifier client = Data();
    client.Ask(client.Register());
    RawNotifier other = Data(2);
    other.Sync();
    EXPECT_FALSE(client.Socket().HasInput());
    Change();
    EXPECT_EQ(client.Read(), Value(kServerDataKind));
}

TEST_F(NotifierTest, TellsOfChangesBetweenTwoCalls) {
    Begin();
    RawNotifier client = Data();
    const std::uint32_t id = client.Register();
    RawNotifier witness = Data(2);
    const std::uint32_t witnessed = witness.Register();
    for (int change = 0; change < 3; ++change) {
        Change();
        EXPECT_EQ(witness.Wait(witnessed), Value(kServerDataKind));
    }
    EXPECT_EQ(client.Wait(id), Value(kServerDataKind)) << "told once";
    client.Ask(id);
    data_.Write("subscriptions.json", R"({"events": {}})");
    EXPECT_EQ(client.Read(), Value(3));
}

TEST_F(NotifierTest, EndsARegistrationWhoseClientWentBeforeItWasTold) {
    Begin();
    RawNotifier witness = Data();
    {
        RawNotifier leaving = Data();
        leaving.AskToRegister();
        ASSERT_TRUE(Eventually([&] { return leaving.Socket().HasInput(); }));
    }
    EXPECT_TRUE(Eventually([&] { return HasLogged("ended: its client went before it was told"); }));
    EXPECT_GT(witness.Register(), 0U) << "its session goes on";
}

TEST_F(NotifierTest, EndsTheWaitOfARegistrationThatEnds) {
    Begin();
    RawNotifier waiting = Data();
    RawNotifier ending = Data();
    const std::uint32_t id = waiting.Register();
    waiting.Ask(id);
    ending.Unregister(id);
    EXPECT_EQ(waiting.Read(), kNothing);
    const auto begin = Clock::now();
    EXPECT_EQ(waiting.Wait(id), kNothing) << "the unregister came first";
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
    ending.Unregister(id);
    ending.Unregister(0);
}

TEST_F(NotifierTest, EndsTheOlderOfTwoWaits) {
    Begin();
    RawNotifier older = Data();
    RawNotifier younger = Data();
    const std::uint32_t id = older.Register();
    older.Ask(id);
    older.Sync();
    younger.Ask(id);
    EXPECT_EQ(older.Read(), kNothing);
    Change();
    EXPECT_EQ(younger.Read(), Value(kServerDataKind));
}

TEST_F(NotifierTest, PacesAnswersWithoutANotice) {
    Begin();
    RawNotifier client = Data();
    client.Register();
    const auto begin = Clock::now();
    EXPECT_EQ(client.Wait(0), kInvalid);
    EXPECT_EQ(client.Wait(0), kInvalid);
    EXPECT_EQ(client.Wait(0), kInvalid);
    EXPECT_GE(Clock::now() - begin, 2 * kErrorPause);
}

TEST_F(NotifierTest, TellsANoticeAgainThatWasLostWithItsConnection) {
    Begin();
    RawNotifier first = Data();
    RawNotifier second = Data();
    const std::uint32_t id = first.Register();
    first.Ask(id);
    RawNotifier witness = Data(2);
    const std::uint32_t witnessed = witness.Register();
    Change();
    EXPECT_EQ(witness.Wait(witnessed), Value(kServerDataKind));
    data_.Write("subscriptions.json", R"({"events": {}})");
    EXPECT_EQ(witness.Wait(witnessed), Value(3));
    first.Socket().Close();
    EXPECT_EQ(second.Wait(id), Value(kServerDataKind)) << "its answer was not read";
    EXPECT_EQ(second.Wait(id), Value(3));
}

TEST_F(NotifierTest, DoesNotRepeatANoticeThatWasReadBeforeTheConnectionEnded) {
    Begin();
    RawNotifier second = Data();
    {
        RawNotifier first = Data();
        const std::uint32_t id = first.Register();
        first.Ask(id);
        Change();
        EXPECT_EQ(first.Read(), Value(kServerDataKind));
        first.Socket().Close();
        second.Ask(id);
    }
    data_.Write("subscriptions.json", R"({"events": {}})");
    EXPECT_EQ(second.Read(), Value(3));
}

TEST_F(NotifierTest, EndsRegistrationsWithTheirSession) {
    Begin();
    RawNotifier client = Data();
    client.Ask(client.Register());
    client.Sync();
    client.Socket().Close();
    EXPECT_TRUE(Eventually([this] { return HasLogged("1 data registrations ended"); }));
}

TEST_F(NotifierTest, EndsWhileCallsWait) {
    Begin();
    RawNotifier client = Data();
    client.Ask(client.Register());
    client.Sync();
    End();
    EXPECT_TRUE(client.Socket().EndsNow());
}

TEST_F(NotifierTest, TakesUpARegistrationAfterARestartAndTellsEverything) {
    Begin();
    const std::uint32_t data = Data().Register();
    const std::uint32_t states =
        RawNotifier(daemon_->SocketPath(), "ConnStateNotifier", 1).Register();
    End();
    Begin();
    RawNotifier client = Data();
    for (std::uint32_t kind = 1; kind <= 7; ++kind) {
        EXPECT_EQ(client.Wait(data), Value(kind));
    }
    RawNotifier stateClient(daemon_->SocketPath(), "ConnStateNotifier", 1);
    EXPECT_EQ(stateClient.Wait(states), Value(0)) << "the state of now";
    client.Ask(data);
    Change();
    EXPECT_EQ(client.Read(), Value(kServerDataKind));
    client.Unregister(data);
    EXPECT_EQ(client.Wait(data), kNothing) << "not taken up once more";
}

TEST_F(NotifierTest, FailsToRegisterByAFault) {
    BeginWithRule("Register", R"("session_status": -7, "calls": 1)");
    RawNotifier client = Data();
    EXPECT_EQ(client.TryRegister(), -7);
    EXPECT_GT(client.TryRegister(), 0);
}

TEST_F(NotifierTest, PacesErrorsOutOfFaults) {
    BeginWithRule("GetChangedDataType",
                  R"("session_status": -7, "calls": [1, 2]}, {"endpoint": "zamDataNotifier",
                     "operation": "GetChangedDataType", "transport_status": 9, "calls": [3, 4])");
    RawNotifier client = Data();
    const std::uint32_t id = client.Register();
    const auto begin = Clock::now();
    EXPECT_EQ(client.Wait(id), zam_service::testing::NoticeStatus(-7));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
    EXPECT_EQ(client.Wait(id), zam_service::testing::NoticeStatus(-7));
    EXPECT_EQ(client.Wait(id), (Noticed{9, 0, 0}));
    EXPECT_EQ(client.Wait(id), (Noticed{9, 0, 0}));
    EXPECT_GE(Clock::now() - begin, 3 * kErrorPause);
    client.Ask(id);
    Change();
    EXPECT_EQ(client.Read(), Value(kServerDataKind));
}

TEST_F(NotifierTest, KeepsANoticeWhoseAnswerAFaultHasTaken) {
    for (const char* const effect : {R"("session_status": -7)", R"("transport_status": 9)",
                                     R"("drop": true)", R"("drop": true, "delay_ms": 20)"}) {
        SCOPED_TRACE(effect);
        BeginWithRule("GetChangedDataType",
                      std::string(effect) + R"(, "calls": 1, "when": "after")");
        RawNotifier client = Data();
        const std::uint32_t id = client.Register();
        client.Ask(id);
        Change();
        if (std::string(effect).find("drop") != std::string::npos) {
            EXPECT_TRUE(client.Socket().EndsNow());
        } else {
            EXPECT_NE(client.Read(), Value(kServerDataKind));
        }
        EXPECT_EQ(Data().Wait(id), Value(kServerDataKind));
        End();
    }
}

TEST_F(NotifierTest, DelaysANotice) {
    BeginWithRule("GetChangedDataType", R"("delay_ms": 60, "when": "after")");
    RawNotifier client = Data();
    client.Ask(client.Register());
    const auto begin = Clock::now();
    Change();
    EXPECT_EQ(client.Read(), Value(kServerDataKind));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(60));
}

}  // namespace
}  // namespace zam_service
