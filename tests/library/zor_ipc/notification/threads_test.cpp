// Subscriptions from many threads while notices pass.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "library/zor_ipc/notification/pipelines.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::test {
namespace {

/// Sizes for every run, and those that `ZAM_FULL_SIZE` asks for.
int Size(int usual, int full) {
    return std::getenv("ZAM_FULL_SIZE") != nullptr ? full : usual;
}

TEST(NotificationThreads, StartAndStopWithNoticesInFlight) {
    StatePipeline pipeline;
    std::atomic<bool> done{false};
    std::thread service([&] {
        while (!done) {
            pipeline.notifier->Tell(static_cast<int>(ZamConnectorState::Connected));
            std::this_thread::yield();
        }
    });
    const auto observer = std::make_shared<StateObserver>();
    for (int time = 0; time < Size(300, 10'000); ++time) {
        SubscriptionCookie cookie;
        ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
        ASSERT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
    }
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
    EXPECT_TRUE(observer->WaitForCount(observer->Count() + 1));
    done = true;
    service.join();
}

TEST(NotificationThreads, SubscribeAndUnsubscribeWhileNoticesPass) {
    const int notices = Size(20'000, 1'000'000);
    StatePipeline pipeline;
    std::atomic<long> seen{0};
    std::atomic<bool> ordered{true};
    int last = -1;
    // Told of every one, in order: each is one more than the last, modulo the number of states.
    auto keeper =
        std::make_shared<RecordingObserver<ZamConnectorState>>([&](const ZamConnectorState& state) {
            const int value = static_cast<int>(state);
            if (last >= 0 && value != (last + 1) % 6) {
                ordered = false;
            }
            last = value;
            ++seen;
        });
    SubscriptionCookie keeperCookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(keeper, keeperCookie), 0);
    std::atomic<bool> done{false};
    std::vector<std::thread> clients;
    for (int client = 0; client < 4; ++client) {
        clients.emplace_back([&] {
            while (!done) {
                const auto observer = std::make_shared<StateObserver>();
                SubscriptionCookie cookie;
                EXPECT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
                std::this_thread::yield();
                EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);
            }
        });
    }
    for (int notice = 0; notice < notices; ++notice) {
        pipeline.notifier->Tell(notice % 6);
    }
    EXPECT_TRUE(keeper->WaitForCount(static_cast<std::size_t>(notices)));
    done = true;
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(pipeline.proxy->Unsubscribe(keeperCookie), 0);
    EXPECT_EQ(seen, notices);
    EXPECT_TRUE(ordered);
}

/// Clients, observers that call back, and the last reference going, all at random.
TEST(NotificationThreads, RandomUseFromInsideAndOutside) {
    testing::RecordingLogger logger(100);  // a notice may find nobody left
    for (int round = 0; round < Size(60, 2'000); ++round) {
        DataPipeline pipeline;
        std::atomic<bool> done{false};
        std::thread service([&] {
            for (std::uint64_t hash = 1; !done; ++hash) {
                pipeline.ChangePolicy(hash);
                std::this_thread::yield();
            }
        });
        std::vector<std::thread> clients;
        for (int client = 0; client < 3; ++client) {
            clients.emplace_back([&, proxy = pipeline.proxy, client]() mutable {
                for (int time = 0; time < 10; ++time) {
                    SubscriptionCookie cookie;
                    std::weak_ptr<proxy::ZamDataChangeSubscriberProxy> weak = proxy;
                    const auto second = std::make_shared<PolicyObserver>();
                    const auto observer =
                        std::make_shared<PolicyObserver>([weak, second](const PolicyChange&) {
                            const auto held = weak.lock();
                            SubscriptionCookie other;
                            held->SubscribeOnPolicyChange(second, other);
                            held->Unsubscribe(other);
                        });
                    proxy->SubscribeOnPolicyChange(observer, cookie);
                    if ((time + client) % 3 == 0) {
                        observer->WaitForCount(1);
                    }
                    proxy->Unsubscribe(cookie);
                }
            });
        }
        pipeline.proxy.reset();
        for (std::thread& client : clients) {
            client.join();
        }
        done = true;
        service.join();
    }
}

}  // namespace
}  // namespace zam_connector::test
