// How notifications end from outside: by dropping their subscriber, and when the service refuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <thread>

#include "library/zor_ipc/notification/pipelines.h"
#include "library/zor_ipc/notification/thread_state.h"

namespace zam_connector::test {
namespace {

using ::testing::ElementsAre;
using ::testing::KilledBySignal;

constexpr int kUnregisterRefused = static_cast<int>(0x8000004BU);

/// An observer that stays inside its calls until it is let go.
struct Stay {
    Flag inside;
    Flag leave;
    std::shared_ptr<StateObserver> observer =
        std::make_shared<StateObserver>([this](const ZamConnectorState&) {
            inside.Raise();
            leave.Wait();
        });
};

/// The drop waits for nobody, so that it may hold what the observer needs. What is being told goes
/// on to the other observers; what comes behind it is not told.
TEST(DroppedSubscriber, GoesAtOnceAndTellsTheRestOfItsRound) {
    Stay stay;
    StatePipeline pipeline;
    const auto next = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(stay.observer, cookie), 0);
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(next, cookie), 0);
    ThreadsEnd end(*pipeline.proxy);
    pipeline.notifier->Tell(1);
    ASSERT_TRUE(stay.inside.Wait());
    pipeline.notifier->Tell(2);
    pipeline.notifier->WaitUntilIdle();
    pipeline.proxy.reset();
    EXPECT_EQ(next->Count(), 0U);
    stay.leave.Raise();
    EXPECT_TRUE(end.Wait());
    EXPECT_THAT(next->Values(), ElementsAre(ZamConnectorState::Connecting));
    EXPECT_EQ(stay.observer->Count(), 1U);
    EXPECT_THAT(pipeline.notifier->Calls(), ElementsAre("Register", "Unregister"));
}

TEST(Unsubscribe, WaitsForTheObserverWhenItStopsTheNotifications) {
    Stay stay;
    StatePipeline pipeline;
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(stay.observer, cookie), 0);
    pipeline.notifier->Tell(1);
    ASSERT_TRUE(stay.inside.Wait());
    std::atomic<pid_t> number{0};
    std::atomic<bool> returned{false};
    std::thread client([&] {
        number = ThreadNumber();
        EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
        returned = true;
    });
    while (pipeline.notifier->Calls().size() < 2) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(WaitUntilAsleep(number));
    EXPECT_FALSE(returned);
    stay.leave.Raise();
    client.join();
}

/// A client takes 0 for the end; what it may see is that nobody waited for its observer.
TEST(RefusedEnd, IsNotToldByUnsubscribe) {
    Stay stay;
    StatePipeline states;
    SubscriptionCookie cookie;
    ASSERT_EQ(states.proxy->SubscribeOnStateChange(stay.observer, cookie), 0);
    states.notifier->Tell(1);
    ASSERT_TRUE(stay.inside.Wait());
    ThreadsEnd end(*states.proxy);
    states.notifier->SetUnregister(kUnregisterRefused);
    EXPECT_EQ(states.proxy->Unsubscribe(cookie), 0);
    states.notifier->SetUnregister(0);
    states.proxy.reset();
    stay.leave.Raise();
    EXPECT_TRUE(end.Wait());

    DataPipeline data;
    const auto observer = std::make_shared<PolicyObserver>();
    ASSERT_EQ(data.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    data.notifier->SetUnregister(kUnregisterRefused);
    EXPECT_EQ(data.proxy->Unsubscribe(cookie), 0);
    data.notifier->SetUnregister(0);
}

/// The wait under way is the last: the next subscription is told what that brings and nothing more,
/// until it is removed and one is added again.
TEST(RefusedEnd, LeavesTheNextSubscriptionOneNotice) {
    StatePipeline pipeline;
    const auto observer = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
    pipeline.notifier->WaitUntilIdle();
    pipeline.notifier->SetUnregister(kUnregisterRefused);
    ASSERT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    pipeline.notifier->SetUnregister(0);

    EXPECT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
    pipeline.notifier->Tell(1);
    ASSERT_TRUE(observer->WaitForCount(1));
    pipeline.notifier->Tell(2);
    EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);  // joins the threads: no call is to come
    EXPECT_THAT(observer->Values(), ElementsAre(ZamConnectorState::Connecting));
    EXPECT_EQ(pipeline.notifier->Waits(), 1);

    EXPECT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
    pipeline.notifier->Tell(2);
    EXPECT_TRUE(observer->WaitForCount(2));
    EXPECT_THAT(pipeline.notifier->Calls(),
                ElementsAre("Register", "Unregister", "Unregister", "Register"));
}

TEST(RefusedEnd, LeavesTheNextSubscriptionOnDataOneNotice) {
    DataPipeline pipeline;
    const auto observer = std::make_shared<PolicyObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.notifier->WaitUntilIdle();
    pipeline.notifier->SetUnregister(kUnregisterRefused);
    ASSERT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    pipeline.notifier->SetUnregister(0);

    EXPECT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.ChangePolicy(1);
    ASSERT_TRUE(observer->WaitForCount(1));
    pipeline.ChangePolicy(2);
    EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    EXPECT_EQ(observer->Count(), 1U);
    EXPECT_EQ(pipeline.notifier->Waits(), 1);
    EXPECT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.ChangePolicy(3);
    EXPECT_TRUE(observer->WaitForCount(2));
}

TEST(RefusedEnd, IsAskedForAgainWhenTheSubscriberIsDropped) {
    StatePipeline pipeline;
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange({}, cookie), 0);
    pipeline.notifier->SetUnregister(kUnregisterRefused);
    ASSERT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);  // is taken for stopped: asks for nothing
    pipeline.notifier->SetUnregister(0);
    pipeline.proxy.reset();
    EXPECT_THAT(pipeline.notifier->Calls(), ElementsAre("Register", "Unregister", "Unregister"));
}

void DropWhileTheServiceRefuses() {
    StatePipeline pipeline;
    SubscriptionCookie cookie;
    pipeline.proxy->SubscribeOnStateChange({}, cookie);
    pipeline.notifier->SetUnregister(kUnregisterRefused);
    pipeline.proxy->Unsubscribe(cookie);
    pipeline.proxy.reset();
}

TEST(RefusedEndDeathTest, EndsTheProcessWhenItIsRefusedAgainToASubscriberThatIsDropped) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(DropWhileTheServiceRefuses(), KilledBySignal(SIGABRT), "terminate");
}

}  // namespace
}  // namespace zam_connector::test
