// Notifications end though the service cannot be told that they do.

#include <fmt/format.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>

#include "data_fixture.h"
#include "support/real_subscribers.h"
#include "transfer_channels.h"
#include "zam_connector_testing/recording_observer.h"

namespace zam_connector::test {
namespace {

using std::chrono::steady_clock;
using testing::RecordingObserver;
using PolicyObserver = RecordingObserver<std::pair<std::uint64_t, ZamPolicy>>;
using StateObserver = RecordingObserver<ZamConnectorState>;

/// What dropping everything takes, with two subscribers, is 2 s; the rest is for a busy machine.
constexpr std::chrono::seconds kLongestEnd{6};

/// How a farewell is made to fail, and undone.
struct Way {
    const char* name;
    const char* faults;  ///< of both `Unregister`
    std::function<void(const testing::ServiceProcess&)> fail;
    std::function<void(const testing::ServiceProcess&)> mend;
};

void PrintTo(const Way& way, std::ostream* out) {
    *out << way.name;
}

Way Faulty(const char* name, const char* faults) {
    return {name, faults, [](const testing::ServiceProcess&) {},
            [](const testing::ServiceProcess&) {}};
}

class FailedFarewell : public ServiceDataTest, public ::testing::WithParamInterface<Way> {
protected:
    FailedFarewell() {
        service_.WriteData("connection.json", kQuickLink);
        service_.WriteData("policy.json", R"({"number": 1})");
    }

    /// Returns when the service keeps to the rules: they make the last operation fail, or not.
    void WriteFaults(std::string rules, bool some) {
        constexpr char kMark[] =
            R"({"endpoint": "connCommandSender", "operation": "ScheduleSync", "result_code": 7})";
        if (some) {
            rules += kMark;
        }
        service_.WriteData("faults.json", R"({"rules": [)" + rules + "]}");
        EXPECT_TRUE(Eventually([&] { return (CommandSender().ScheduleSync() == 7) == some; }));
    }

    void Fail() {
        const auto rule = [](const char* endpoint) {
            return fmt::format(R"({{"endpoint": "{}", "operation": "Unregister", {}}}, )", endpoint,
                               GetParam().faults);
        };
        if (*GetParam().faults != '\0') {
            WriteFaults(rule("connStateNotifier") + rule("zamDataNotifier"), true);
        }
        GetParam().fail(service_);
    }

    void Mend() {
        GetParam().mend(service_);
        WriteFaults("", false);
    }

    void SubscribeToBoth() {
        ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(policies_, policyCookie_), 0);
        ASSERT_EQ(subscribers_->States()->SubscribeOnStateChange(states_, stateCookie_), 0);
    }

    void ChangeBoth(int number) {
        service_.WriteData("policy.json", R"({"number": )" + std::to_string(number) + "}");
        ASSERT_EQ(Controller().Start(Parameters()), 0);
        ASSERT_TRUE(Eventually([&] { return State() == ZamConnectorState::Connected; }));
        ASSERT_EQ(Controller().Stop(), 0);
        ASSERT_TRUE(Eventually([&] { return State() == ZamConnectorState::Stopped; }));
    }

    /// Of the policy told last; 0 when none was.
    long LastPolicy() const {
        const auto values = policies_->Values();
        return values.empty() ? 0 : values.back().second.tree.Find("number")->Get<long>();
    }

    const std::shared_ptr<PolicyObserver> policies_ = std::make_shared<PolicyObserver>();
    const std::shared_ptr<StateObserver> states_ = std::make_shared<StateObserver>();
    SubscriptionCookie policyCookie_;
    SubscriptionCookie stateCookie_;
    std::unique_ptr<RealSubscribers> subscribers_;
};

TEST_P(FailedFarewell, EndsNotificationsInTime) {
    StartService();
    subscribers_ = std::make_unique<RealSubscribers>();
    SubscribeToBoth();
    ChangeBoth(2);
    ASSERT_TRUE(policies_->WaitForCount(1));
    ASSERT_TRUE(states_->WaitForCount(4));

    Fail();
    const auto begin = steady_clock::now();
    EXPECT_EQ(subscribers_->Data()->Unsubscribe(policyCookie_), 0);
    EXPECT_EQ(subscribers_->States()->Unsubscribe(stateCookie_), 0);
    EXPECT_LT(steady_clock::now() - begin, kLongestEnd);
    Mend();

    // What is subscribed next is told again.
    SubscribeToBoth();
    ChangeBoth(3);
    EXPECT_TRUE(Eventually([this] { return LastPolicy() == 3; }));
    EXPECT_TRUE(states_->WaitForCount(8));
}

TEST_P(FailedFarewell, DoesNotKeepAConnectorFromBeingDropped) {
    StartService();
    subscribers_ = std::make_unique<RealSubscribers>();
    SubscribeToBoth();
    Fail();
    const auto begin = steady_clock::now();
    subscribers_.reset();
    EXPECT_LT(steady_clock::now() - begin, kLongestEnd);
    Mend();
    EXPECT_EQ(State(), ZamConnectorState::Stopped) << "the client's own calls go on";
}

INSTANTIATE_TEST_SUITE_P(
    Ways, FailedFarewell,
    ::testing::Values(
        Faulty("AnsweredWithAStatus", R"("transport_status": 5)"),
        Faulty("AnsweredNotAdmitted", R"("transport_status": 16)"),
        Faulty("AnsweredOverTheQuota", R"("transport_status": 17)"),
        Faulty("Dropped", R"("drop": true)"), Faulty("AnsweredTooLate", R"("delay_ms": 86400000)"),
        Way{"Stopped", "",
            [](const testing::ServiceProcess& service) { ::kill(service.Pid(), SIGSTOP); },
            [](const testing::ServiceProcess& service) { ::kill(service.Pid(), SIGCONT); }}),
    [](const ::testing::TestParamInfo<Way>& way) { return std::string(way.param.name); });

class RefusedConnection : public ServiceDataTest {};

/// The farewell needs a connection of its own, and the rules for the runtime directory no longer
/// hold.
TEST_F(RefusedConnection, EndsNotificationsInTime) {
    StartService();
    RealSubscribers subscribers;
    const auto observer = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(subscribers.States()->SubscribeOnStateChange(observer, cookie), 0);
    // The successor of a service has one connection: that of the wait, which it has answered once.
    service_.Kill();
    service_.Start();
    ASSERT_TRUE(observer->WaitForCount(1));
    ASSERT_EQ(::chmod(service_.RuntimeDirectory().c_str(), 0777), 0);
    const auto begin = steady_clock::now();
    EXPECT_EQ(subscribers.States()->Unsubscribe(cookie), 0);
    EXPECT_LT(steady_clock::now() - begin, kLongestEnd);
    ASSERT_EQ(::chmod(service_.RuntimeDirectory().c_str(), 0700), 0);
    EXPECT_EQ(State(), ZamConnectorState::Stopped);
}

TEST_F(RefusedConnection, LeavesTheNotificationsOfAnotherConnectorAlone) {
    StartService();
    auto one = std::make_unique<RealSubscribers>();
    RealSubscribers other;
    const auto told = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(one->States()->SubscribeOnStateChange(std::make_shared<StateObserver>(), cookie), 0);
    ASSERT_EQ(other.States()->SubscribeOnStateChange(told, cookie), 0);
    service_.Kill();
    service_.Start();
    ASSERT_TRUE(told->WaitForCount(1));
    ASSERT_EQ(::chmod(service_.RuntimeDirectory().c_str(), 0777), 0);
    one.reset();
    ASSERT_EQ(::chmod(service_.RuntimeDirectory().c_str(), 0700), 0);
    ASSERT_EQ(Controller().Start(Parameters()), 0);
    EXPECT_TRUE(told->WaitForCount(2));
}

/// What uploads are beside: calls that ran out, farewells that failed, notifications that ended.
TEST_F(RefusedConnection, FailsNoUploadBesideIt) {
    service_.WriteData("faults.json", R"({"rules": [
        {"endpoint": "connStateNotifier", "operation": "Unregister", "delay_ms": 86400000}]})");
    StartService();
    std::atomic<bool> isDone{false};
    std::thread uploads([&] {
        unsigned long hash = 0;
        do {
            EXPECT_EQ(Holder().SetSettings({TreeOf(20'000)}, hash), 0);
        } while (!isDone);
    });
    for (int round = 0; round < 3; ++round) {
        RealSubscribers subscribers;
        SubscriptionCookie cookie;
        EXPECT_EQ(
            subscribers.States()->SubscribeOnStateChange(std::make_shared<StateObserver>(), cookie),
            0);
        EXPECT_EQ(subscribers.States()->Unsubscribe(cookie), 0);
    }
    isDone = true;
    uploads.join();
}

/// The handler thread waits for data that the service does not give.
class FetchUnderWay : public ServiceDataTest {
protected:
    static constexpr char kRefusedFarewell[] =
        R"({"endpoint": "zamDataNotifier", "operation": "Unregister", "transport_status": 5},)";

    void BeginFetch(const std::string& farewellRule, const char* operation = "*") {
        service_.WriteData("policy.json", R"({"number": 1})");
        service_.WriteData("connection.json", kQuickLink);
        service_.WriteData("faults.json", R"({"rules": [)" + farewellRule + R"(
            {"endpoint": "zamDataProvider", "delay_ms": 86400000, "operation": ")" +
                                              operation + R"("}]})");
        StartLoud();
        subscribers_ = std::make_unique<RealSubscribers>();
        ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(policies_, policyCookie_), 0);
        service_.WriteData("policy.json", R"({"number": 2})");
        ASSERT_TRUE(Eventually([&] { return ServiceLogged("zamDataProvider"); }));
    }

    const std::shared_ptr<PolicyObserver> policies_ = std::make_shared<PolicyObserver>();
    SubscriptionCookie policyCookie_;
    std::unique_ptr<RealSubscribers> subscribers_;
};

TEST_F(FetchUnderWay, EndsWhenTheFarewellFails) {
    BeginFetch(kRefusedFarewell);
    const auto begin = steady_clock::now();
    EXPECT_EQ(subscribers_->Data()->Unsubscribe(policyCookie_), 0);
    EXPECT_LT(steady_clock::now() - begin, kLongestEnd);
    EXPECT_EQ(policies_->Count(), 0U);
}

TEST_F(FetchUnderWay, HoldsUpNoEndThatTheServiceWasToldOf) {
    BeginFetch("");
    const auto begin = steady_clock::now();
    EXPECT_EQ(subscribers_->Data()->Unsubscribe(policyCookie_), 0);
    EXPECT_LT(steady_clock::now() - begin, kLongestEnd);
    EXPECT_EQ(policies_->Count(), 0U);
    EXPECT_EQ(State(), ZamConnectorState::Stopped) << "the client's own calls go on";
}

TEST_F(FetchUnderWay, LeavesNoChannelOpenWhenTheServiceWasToldOfTheEnd) {
    BeginFetch("", "GetData");
    EXPECT_EQ(subscribers_->Data()->Unsubscribe(policyCookie_), 0);
    EXPECT_EQ(policies_->Count(), 0U);
    EXPECT_FALSE(TransferChannels().IsLastTreeOpen());
}

/// An observer on one pipeline's thread ends the other pipeline, whose thread is left to be joined
/// by a later end. That must not wait for the fetch.
TEST_F(FetchUnderWay, HoldsUpNoLaterEndEither) {
    BeginFetch(kRefusedFarewell);
    std::promise<void> hasEnded;
    bool isFirst = true;
    const auto states = std::make_shared<StateObserver>([&](const ZamConnectorState&) {
        if (std::exchange(isFirst, false)) {
            EXPECT_EQ(subscribers_->Data()->Unsubscribe(policyCookie_), 0);
            hasEnded.set_value();
        }
    });
    SubscriptionCookie stateCookie;
    ASSERT_EQ(subscribers_->States()->SubscribeOnStateChange(states, stateCookie), 0);
    ASSERT_EQ(Controller().Start(Parameters()), 0);
    ASSERT_EQ(hasEnded.get_future().wait_for(zam_test::kBound), std::future_status::ready);
    ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(policies_, policyCookie_), 0);
    EXPECT_EQ(subscribers_->Data()->Unsubscribe(policyCookie_), 0);
    EXPECT_EQ(subscribers_->States()->Unsubscribe(stateCookie), 0);
}

}  // namespace
}  // namespace zam_connector::test
