// What observers may do inside a call.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "library/zor_ipc/notification/pipelines.h"
#include "library/zor_ipc/notification/thread_state.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Not;

std::vector<std::uint64_t> Hashes(const PolicyObserver& observer) {
    std::vector<std::uint64_t> hashes;
    for (const PolicyChange& change : observer.Values()) {
        hashes.push_back(change.first);
    }
    return hashes;
}

TEST(ObserverInside, RunsOnNeitherTheClientsNorTheSubscribersThread) {
    DataPipeline pipeline;
    const auto observer = std::make_shared<PolicyObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.ChangePolicy(1);
    ASSERT_TRUE(observer->WaitForCount(1));
    pipeline.ChangePolicy(2);
    ASSERT_TRUE(observer->WaitForCount(2));
    EXPECT_THAT(observer->Threads(), Not(::testing::Contains(std::this_thread::get_id())));
    EXPECT_EQ(observer->Threads()[0], observer->Threads()[1]);
}

TEST(ObserverInside, UnsubscribesItself) {
    DataPipeline pipeline;
    SubscriptionCookie cookie;
    std::atomic<int> result{-1};
    const auto observer = std::make_shared<PolicyObserver>(
        [&](const PolicyChange&) { result = pipeline.proxy->Unsubscribe(cookie); });
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.ChangePolicy(1);
    ASSERT_TRUE(observer->WaitForCount(1));

    const auto next = std::make_shared<PolicyObserver>();
    SubscriptionCookie nextCookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(next, nextCookie), 0);
    pipeline.ChangePolicy(2);
    ASSERT_TRUE(next->WaitForCount(1));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(observer->Count(), 1U);
    EXPECT_EQ(pipeline.notifier->Calls().front(), "Register");
}

TEST(ObserverInside, SubscribesAnother) {
    DataPipeline pipeline;
    const auto other = std::make_shared<ServerDataObserver>();
    SubscriptionCookie otherCookie;
    const auto observer = std::make_shared<PolicyObserver>([&](const PolicyChange&) {
        EXPECT_EQ(pipeline.proxy->SubscribeOnZamServerDataChange(other, otherCookie), 0);
    });
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.ChangePolicy(1);
    ASSERT_TRUE(observer->WaitForCount(1));
    pipeline.notifier->Tell(kServerDataKind);
    EXPECT_TRUE(other->WaitForCount(1));
    EXPECT_EQ(otherCookie, SubscriptionCookie(2));
}

/// Starts and stops within one call take turns with it: the observer is never entered twice.
TEST(ObserverInside, ResubscribesOverAndOver) {
    constexpr int kTimes = 200;
    DataPipeline pipeline;
    SubscriptionCookie cookie;
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<bool> first{true};
    std::shared_ptr<PolicyObserver> observer;
    observer = std::make_shared<PolicyObserver>([&](const PolicyChange&) {
        most = std::max(most.load(), ++inside);
        if (first.exchange(false)) {
            for (int time = 0; time < kTimes; ++time) {
                EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
                EXPECT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
            }
            pipeline.ChangePolicy(2);
        }
        --inside;
    });
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.ChangePolicy(1);
    ASSERT_TRUE(observer->WaitForCount(2));
    EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    EXPECT_EQ(most, 1);
    EXPECT_THAT(Hashes(*observer), ElementsAre(1, 2));
    EXPECT_EQ(pipeline.notifier->Calls().size(), 2U * kTimes + 2U);
    observer.reset();
}

TEST(ObserverInside, DropsTheLastReference) {
    DataPipeline pipeline;
    ThreadsEnd unused(*pipeline.proxy);  // no thread runs: at once
    EXPECT_TRUE(unused.Wait());

    SubscriptionCookie cookie;
    std::promise<void> ready;
    std::shared_future<void> isReady = ready.get_future().share();
    auto observer = std::make_shared<PolicyObserver>([&, isReady](const PolicyChange&) {
        isReady.wait();
        pipeline.proxy.reset();
    });
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    ThreadsEnd end(*pipeline.proxy);
    pipeline.ChangePolicy(1);
    ready.set_value();
    EXPECT_TRUE(end.Wait());
    EXPECT_THAT(pipeline.notifier->Calls(), ElementsAre("Register", "Unregister"));
    EXPECT_EQ(observer->Count(), 1U);
}

TEST(ObserverInside, DropsTheOtherPipelineToo) {
    DataPipeline data;
    StatePipeline state;
    const auto stateObserver = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(state.proxy->SubscribeOnStateChange(stateObserver, cookie), 0);
    ThreadsEnd stateEnd(*state.proxy);
    std::promise<void> ready;
    std::shared_future<void> isReady = ready.get_future().share();
    const auto observer = std::make_shared<PolicyObserver>([&, isReady](const PolicyChange&) {
        isReady.wait();
        state.proxy.reset();
        data.proxy.reset();
    });
    ASSERT_EQ(data.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    ThreadsEnd dataEnd(*data.proxy);
    data.ChangePolicy(1);
    ready.set_value();
    EXPECT_TRUE(dataEnd.Wait());
    EXPECT_TRUE(stateEnd.Wait());
    EXPECT_THAT(state.notifier->Calls(), ElementsAre("Register", "Unregister"));
    EXPECT_THAT(data.notifier->Calls(), ElementsAre("Register", "Unregister"));
}

/// The client's thread stops the pipeline and waits for the observer, which subscribes: the start
/// is left to the client's thread.
TEST(ObserverInside, LeavesAStartToTheThreadThatWaitsForIt) {
    DataPipeline pipeline;
    const auto next = std::make_shared<PolicyObserver>();
    SubscriptionCookie nextCookie;
    std::promise<void> stopping;
    std::shared_future<void> isStopping = stopping.get_future().share();
    const auto observer = std::make_shared<PolicyObserver>([&, isStopping](const PolicyChange&) {
        isStopping.wait();
        EXPECT_EQ(pipeline.proxy->SubscribeOnPolicyChange(next, nextCookie), 0);
        EXPECT_EQ(nextCookie, SubscriptionCookie(2));
    });
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.ChangePolicy(1);
    ASSERT_TRUE(observer->WaitForCount(1));
    std::thread watcher([&] {
        while (pipeline.notifier->Calls().size() < 2) {
            std::this_thread::yield();
        }
        stopping.set_value();
    });
    EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    watcher.join();
    EXPECT_THAT(pipeline.notifier->Calls(), ElementsAre("Register", "Unregister", "Register"));
    pipeline.ChangePolicy(2);
    EXPECT_TRUE(next->WaitForCount(1));
    EXPECT_EQ(observer->Count(), 1U);
}

TEST(ObserverInside, LeavesAStopToTheThreadThatStarts) {
    StatePipeline pipeline;
    SubscriptionCookie first;
    SubscriptionCookie second;
    std::atomic<bool> stopped{false};
    const auto observer = std::make_shared<StateObserver>([&](const ZamConnectorState&) {
        EXPECT_EQ(pipeline.proxy->Unsubscribe(first), 0);
        stopped = true;
    });
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, first), 0);
    pipeline.notifier->Tell(static_cast<int>(ZamConnectorState::Connected));
    ASSERT_TRUE(observer->WaitForCount(1));
    const auto next = std::make_shared<StateObserver>();
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(next, second), 0);
    while (!stopped) {
        std::this_thread::yield();
    }
    pipeline.notifier->Tell(static_cast<int>(ZamConnectorState::Stopped));
    EXPECT_TRUE(next->WaitForCount(1));
    EXPECT_EQ(observer->Count(), 1U);
}

/// Two clients' threads stop one pipeline each, from the other's observer.
TEST(ObserverInside, StopsEachOthersPipeline) {
    StatePipeline left;
    StatePipeline right;
    SubscriptionCookie leftCookie;
    SubscriptionCookie rightCookie;
    std::promise<void> leftIn;
    std::promise<void> rightIn;
    std::shared_future<void> isLeftIn = leftIn.get_future().share();
    std::shared_future<void> isRightIn = rightIn.get_future().share();
    const auto leftObserver = std::make_shared<StateObserver>([&](const ZamConnectorState&) {
        leftIn.set_value();
        isRightIn.wait();
        EXPECT_EQ(right.proxy->Unsubscribe(rightCookie), 0);
    });
    const auto rightObserver = std::make_shared<StateObserver>([&](const ZamConnectorState&) {
        rightIn.set_value();
        isLeftIn.wait();
        EXPECT_EQ(left.proxy->Unsubscribe(leftCookie), 0);
    });
    ASSERT_EQ(left.proxy->SubscribeOnStateChange(leftObserver, leftCookie), 0);
    ASSERT_EQ(right.proxy->SubscribeOnStateChange(rightObserver, rightCookie), 0);
    ThreadsEnd leftEnd(*left.proxy);
    ThreadsEnd rightEnd(*right.proxy);
    left.notifier->Tell(0);
    right.notifier->Tell(0);
    EXPECT_TRUE(leftEnd.Wait());
    EXPECT_TRUE(rightEnd.Wait());
    EXPECT_THAT(left.notifier->Calls(), ElementsAre("Register", "Unregister"));
    EXPECT_THAT(right.notifier->Calls(), ElementsAre("Register", "Unregister"));
}

/// A stop inside an observer lets its own round finish and drops what came meanwhile.
TEST(ObserverInside, StopKeepsItsRoundAndDropsTheNext) {
    StatePipeline pipeline;
    SubscriptionCookie cookie;
    std::promise<void> told;
    std::shared_future<void> isTold = told.get_future().share();
    std::atomic<int> calls{0};
    const auto observer = std::make_shared<StateObserver>([&, isTold](const ZamConnectorState&) {
        ++calls;
        isTold.wait();
    });
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
    pipeline.notifier->Tell(1);
    ASSERT_TRUE(observer->WaitForCount(1));  // inside, on the first round
    pipeline.notifier->Tell(2);
    pipeline.notifier->Tell(3);
    pipeline.notifier->WaitUntilIdle();  // both are in the queue for the second round
    std::thread watcher([&] {
        while (pipeline.notifier->Calls().size() < 2) {
            std::this_thread::yield();
        }
        told.set_value();
    });
    ThreadsEnd end(*pipeline.proxy);
    EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    watcher.join();
    EXPECT_TRUE(end.Wait());
    EXPECT_EQ(calls, 1);
}

TEST(ObserverInside, ThatThrowsEndsTheNotificationsUntilTheNextStart) {
    testing::RecordingLogger logger(zor::logger::kLevelError);
    DataPipeline pipeline;
    std::atomic<pid_t> thread{0};
    const auto observer = std::make_shared<PolicyObserver>([&thread](const PolicyChange& change) {
        thread = ThreadNumber();
        if (change.first == 1) {
            throw std::runtime_error("observer's own");
        }
        if (change.first == 3) {
            throw 3;  // NOLINT: not every exception is one of the standard library
        }
    });
    SubscriptionCookie cookie;
    std::vector<std::string> texts;
    for (const std::uint64_t hash : {1U, 3U, 4U}) {
        ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
        const std::size_t before = observer->Count();
        pipeline.ChangePolicy(hash);
        ASSERT_TRUE(observer->WaitForCount(before + 1));
        if (hash != 4) {
            ASSERT_TRUE(WaitUntilGone(thread));
            pipeline.ChangePolicy(hash + 1);
            pipeline.notifier->WaitUntilIdle();
        }
        ASSERT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    }
    EXPECT_THAT(Hashes(*observer), ElementsAre(1, 3, 4));
    for (const testing::LogRecord& record : logger.Records()) {
        texts.push_back(record.text);
    }
    EXPECT_THAT(texts, ElementsAre("DataHandler: ProcessData threw exception: observer's own",
                                   "DataHandler: ProcessData threw exception: non-std exception"));
}

TEST(ObserverInside, IsDestroyedOnTheHandlerThreadWhenTheCallWasItsLastOwner) {
    DataPipeline pipeline;
    SubscriptionCookie cookie;
    std::promise<void> inside;
    std::promise<void> dropped;
    std::shared_future<void> isDropped = dropped.get_future().share();
    auto observer = std::make_shared<PolicyObserver>([&, isDropped](const PolicyChange&) {
        inside.set_value();
        isDropped.wait();
    });
    const std::weak_ptr<PolicyObserver> watched = observer;
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.ChangePolicy(1);
    inside.get_future().wait();
    observer.reset();
    dropped.set_value();
    pipeline.ChangePolicy(2);
    EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace zam_connector::test
