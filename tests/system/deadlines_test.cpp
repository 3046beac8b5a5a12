// Calls end when their callers want them to, and say how they ended.

#include "zam_connector/call_deadline.h"

#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "data_fixture.h"
#include "support/real_subscribers.h"
#include "support/result_codes.h"
#include "transfer_channels.h"
#include "zam_connector_testing/recording_observer.h"

namespace zam_connector::test {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kShort{30};

class Deadlines : public ServiceDataTest {
public:
    int GetState() {
        ZamConnectorState state{};
        return Controller().GetState(state);
    }

protected:
    ~Deadlines() override { SetDefaultCallTimeout(milliseconds(0)); }

    /// Starts the service with one rule of faults.
    void StartWith(const std::string& rule) {
        service_.WriteData("faults.json", R"({"rules": [)" + rule + "]}");
        StartService();
    }

    static std::string Late(const std::string& endpoint, const std::string& operation) {
        return R"({"endpoint": ")" + endpoint + R"(", "operation": ")" + operation +
               R"(", "delay_ms": 600000})";
    }
};

const std::string kLateState =
    R"({"endpoint": "connController", "operation": "GetState", "delay_ms": 600000})";

TEST_F(Deadlines, EndACallThatTheServiceAnswersTooLate) {
    StartWith(kLateState);
    const auto begin = steady_clock::now();
    const CallDeadline within(kShort);
    EXPECT_EQ(GetState(), kUnspecifiedError);
    EXPECT_GE(steady_clock::now() - begin, kShort);
    const TransportStatus status = LastTransportStatus();
    EXPECT_EQ(status.failure, TransportFailure::TimedOut);
    EXPECT_EQ(status.number, 4);
    EXPECT_STREQ(status.text, "the time for the answer ran out");
    EXPECT_EQ(logger_.Records().back().text,
              "ZamConnControllerProxy: ipc call GetState terminated with a error 4");
}

TEST_F(Deadlines, EndWithTheirObject) {
    StartService();
    { const CallDeadline passed(milliseconds(0)); }
    EXPECT_EQ(GetState(), 0);
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::None);
    EXPECT_EQ(LastTransportStatus().text, nullptr);
}

TEST_F(Deadlines, AreOfOneThread) {
    StartService();
    const CallDeadline passed(milliseconds(0));
    EXPECT_EQ(GetState(), kUnspecifiedError);
    std::thread([this] { EXPECT_EQ(GetState(), 0); }).join();
}

TEST_F(Deadlines, OfAllLengthsAreDeadlines) {
    StartService();
    using std::chrono::nanoseconds;
    for (const nanoseconds length : {nanoseconds::min(), nanoseconds(-1), nanoseconds(0)}) {
        const CallDeadline passed(length);
        EXPECT_EQ(GetState(), kUnspecifiedError);
    }
    for (const nanoseconds length : {nanoseconds(hours(24)), nanoseconds::max()}) {
        const CallDeadline far(length);
        EXPECT_EQ(GetState(), 0);
    }
    const CallDeadline first(steady_clock::time_point::min());
    EXPECT_EQ(GetState(), kUnspecifiedError);
}

/// One moment holds for the whole of a pull, not one for each of its calls.
TEST_F(Deadlines, BoundAFetchOfManyCallsAsAWhole) {
    service_.WriteData("policy.json", tree_json::Write(TreeOf(20'000)));  // some pieces
    StartWith(R"({"endpoint": "zamDataProvider", "operation": "GetData", "delay_ms": 200})");
    std::pair<unsigned long, ZamPolicy> policy;
    const auto begin = steady_clock::now();
    {
        const CallDeadline within(milliseconds(300));  // longer than each call
        EXPECT_EQ(Provider().GetPolicy(policy), kUnspecifiedError);
    }
    EXPECT_GE(steady_clock::now() - begin, milliseconds(300));
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::TimedOut)
        << "what failed, not the close that succeeded behind it";
    EXPECT_EQ(policy.first, 0U);
}

TEST_F(Deadlines, LeaveNoChannelOpen) {
    StartWith(Late("productDataHolder", "SendData"));
    unsigned long hash = 0;
    {
        const CallDeadline within(kShort);
        EXPECT_EQ(Holder().SetSettings({TreeOf(3)}, hash), kUnspecifiedError);
    }
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::TimedOut);
    EXPECT_FALSE(TransferChannels().IsLastUploadOpen());
}

TEST_F(Deadlines, GiveAHangingServiceThreeQuartersOfASecondToCloseAChannel) {
    StartWith(Late("productDataHolder", "SendData") + ", " +
              Late("productDataHolder", "CloseChannel"));
    unsigned long hash = 0;
    const auto begin = steady_clock::now();
    const CallDeadline within(kShort);
    EXPECT_EQ(Holder().SetSettings({TreeOf(3)}, hash), kUnspecifiedError);
    EXPECT_GE(steady_clock::now() - begin, milliseconds(750));
}

TEST_F(Deadlines, OfTheProcessHoldForEveryCall) {
    StartWith(kLateState);
    SetDefaultCallTimeout(kShort);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(GetState(), kUnspecifiedError);
        EXPECT_EQ(LastTransportStatus().failure, TransportFailure::TimedOut);
    }
    SetDefaultCallTimeout(zam_test::kBound);
    EXPECT_EQ(CommandSender().ScheduleSync(), 0);
}

/// The library's own threads wait for hours, whatever the process wants; an observer does not.
TEST_F(Deadlines, OfTheProcessAreNoneOfTheLibrarysButOfAnObservers) {
    service_.WriteData("policy.json", R"({"number": 1})");
    StartWith(kLateState + ", " +
              R"({"endpoint": "zamDataProvider", "operation": "GetData", "delay_ms": 300})");
    SetDefaultCallTimeout(milliseconds(100));
    class Observer final
        : public qor::observer::IChangeObserver<std::pair<std::uint64_t, ZamPolicy>, int> {
    public:
        explicit Observer(Deadlines& test) : test_(test) {}
        int OnChange(const std::pair<std::uint64_t, ZamPolicy>& policy) override {
            const int code = test_.GetState();
            told.set_value({policy.second.tree.Find("number")->Get<long>(), code});
            return 0;
        }
        std::promise<std::pair<long, int>> told;

    private:
        Deadlines& test_;
    };
    const auto observer = std::make_shared<Observer>(*this);
    auto told = observer->told.get_future();
    RealSubscribers subscribers;
    SubscriptionCookie cookie;
    ASSERT_EQ(subscribers.Data()->SubscribeOnPolicyChange(observer, cookie), 0);
    // Longer than the process's bound for a call: the wait for a notice has none.
    ASSERT_EQ(told.wait_for(milliseconds(400)), std::future_status::timeout);
    service_.WriteData("policy.json", R"({"number": 2})");
    ASSERT_EQ(told.wait_for(kBound), std::future_status::ready);
    EXPECT_EQ(told.get(), (std::pair<long, int>(2, kUnspecifiedError)));
    EXPECT_EQ(subscribers.Data()->Unsubscribe(cookie), 0);
}

class Cancelling : public Deadlines {
protected:
    Canceller canceller_;
};

TEST_F(Cancelling, EndsACallUnderWayAndAllBehindIt) {
    StartWith(kLateState);
    std::promise<void> called;
    std::thread calling([&] {
        const Canceller::Scope scope(canceller_);
        called.set_value();
        EXPECT_EQ(GetState(), kUnspecifiedError);
        const TransportStatus status = LastTransportStatus();
        EXPECT_EQ(status.failure, TransportFailure::Cancelled);
        EXPECT_EQ(status.number, 10);
        EXPECT_STREQ(status.text, "the call was ended by its caller");
        EXPECT_EQ(CommandSender().ScheduleSync(), kUnspecifiedError);
        EXPECT_EQ(LastTransportStatus().failure, TransportFailure::Cancelled);
    });
    called.get_future().wait();
    EXPECT_FALSE(canceller_.IsCancelled());
    canceller_.Cancel();
    calling.join();
    EXPECT_TRUE(canceller_.IsCancelled());
    EXPECT_EQ(CommandSender().ScheduleSync(), 0) << "it was of that thread";
}

TEST_F(Cancelling, EndsTheCallsOfManyThreads) {
    StartWith(kLateState);
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([this] {
            const Canceller::Scope scope(canceller_);
            EXPECT_EQ(GetState(), kUnspecifiedError);
        });
    }
    canceller_.Cancel();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(Cancelling, LeavesNoChannelOpen) {
    StartWith(Late("productDataHolder", "SendData"));
    std::thread calling([this] {
        unsigned long hash = 0;
        const Canceller::Scope scope(canceller_);
        EXPECT_EQ(Holder().SetSettings({TreeOf(3)}, hash), kUnspecifiedError);
        EXPECT_EQ(LastTransportStatus().failure, TransportFailure::Cancelled);
    });
    ASSERT_TRUE(Eventually([] { return TransferChannels().OpenedSinceStart() > 0; }));
    canceller_.Cancel();
    calling.join();
    EXPECT_FALSE(TransferChannels().IsLastUploadOpen());
}

TEST_F(Cancelling, OutlivesItsOwner) {
    StartService();
    auto canceller = std::make_unique<Canceller>();
    const Canceller::Scope scope(*canceller);
    canceller.reset();
    EXPECT_EQ(GetState(), 0);
}

TEST_F(Deadlines, LeaveTheReasonOfAFailureThatIsNoTransports) {
    StartService();
    {
        const CallDeadline passed(milliseconds(0));
        EXPECT_EQ(GetState(), kUnspecifiedError);
    }
    ASSERT_EQ(LastTransportStatus().failure, TransportFailure::TimedOut);
    ZamConnectionParameters parameters = Parameters();
    parameters.serverAddress.assign(2000, 'x');  // more than the request's arena holds
    EXPECT_EQ(Controller().Start(parameters), kUnspecifiedError);
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::None);
}

TEST_F(Deadlines, TellWhyNoConnectorCouldBeMade) {
    std::shared_ptr<IZamConnector> connector;
    EXPECT_EQ(CreateZamConnector(connector, {}), kUnspecifiedError);
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::Unavailable);
    StartService();
    {
        const CallDeadline passed(milliseconds(0));
        EXPECT_EQ(CreateZamConnector(connector, {}), kUnspecifiedError);
        EXPECT_EQ(LastTransportStatus().failure, TransportFailure::TimedOut);
    }
    ASSERT_EQ(::kill(service_.Pid(), SIGSTOP), 0);
    {
        const CallDeadline within(kShort);
        EXPECT_EQ(CreateZamConnector(connector, {}), kUnspecifiedError);
        EXPECT_EQ(LastTransportStatus().failure, TransportFailure::TimedOut);
    }
    ASSERT_EQ(::kill(service_.Pid(), SIGCONT), 0);
    EXPECT_EQ(CreateZamConnector(connector, {}), 0);
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::None);
}

}  // namespace
}  // namespace zam_connector::test
