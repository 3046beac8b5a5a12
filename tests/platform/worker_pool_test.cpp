#include "zam_platform/server/worker_pool.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>
#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <vector>

#include "support/background.h"

namespace zam_platform::testing {
namespace {

TEST(WorkerPool, RunsTheJobsOfALaneInOrder) {
    constexpr int kJobs = 1000;
    std::vector<int> order;
    {
        WorkerPool pool(4, 1, kJobs);
        for (int job = 0; job < kJobs; ++job) {
            ASSERT_TRUE(pool.Post(0, [&order, job] { order.push_back(job); }));
        }
    }
    ASSERT_EQ(order.size(), static_cast<std::size_t>(kJobs)) << "all were finished";
    for (int job = 0; job < kJobs; ++job) {
        ASSERT_EQ(order[static_cast<std::size_t>(job)], job);
    }
}

TEST(WorkerPool, LogsForTheUserWhoseJobItIs) {
    constexpr uid_t kUser = 1000;
    const auto user = [] { return LogContext::Here().user; };
    asio::io_context loop;
    std::vector<std::optional<uid_t>> users;
    {
        WorkerPool pool(1, 1, 10);
        const auto done = [&](std::optional<std::optional<uid_t>> ofWork) {
            users.push_back(ofWork.value_or(std::nullopt));
            users.push_back(user());
        };
        ASSERT_TRUE(pool.PostTo(loop, 0, kUser, user, done));
        ASSERT_TRUE(pool.PostTo(loop, 0, user, done));
    }
    loop.run();
    EXPECT_EQ(users, (std::vector<std::optional<uid_t>>{kUser, kUser, {}, {}}));
}

TEST(WorkerPool, RunsLanesSideBySide) {
    WorkerPool pool(2, 2, 10);
    std::promise<void> other;
    std::promise<bool> met;
    pool.Post(0, [&] {
        met.set_value(other.get_future().wait_for(kBound) == std::future_status::ready);
    });
    pool.Post(1, [&] { other.set_value(); });
    EXPECT_TRUE(met.get_future().get());
}

TEST(WorkerPool, TakesNoMoreThanAQuarterFromAUser) {
    WorkerPool pool(1, 1, 8);
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    const auto job = [released] { released.wait_for(kBound); };
    constexpr uid_t kBusyUser = 1000;
    constexpr uid_t kOtherUser = 1001;
    EXPECT_TRUE(pool.Post(0, kBusyUser, job));
    EXPECT_TRUE(pool.Post(0, kBusyUser, job));
    EXPECT_FALSE(pool.Post(0, kBusyUser, job));
    EXPECT_TRUE(pool.Post(0, kOtherUser, job));
    EXPECT_TRUE(pool.Post(0, job)) << "of nobody";
    release.set_value();
    Await("room for another", [&] { return pool.Post(0, kBusyUser, job); });
}

TEST(WorkerPool, TakesNoMoreJobsThanItsLimit) {
    WorkerPool pool(1, 1, 3);
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    std::atomic<int> ran{0};
    const auto job = [released, &ran] {
        released.wait_for(kBound);
        ++ran;
    };
    constexpr uid_t kUser = 1000;
    EXPECT_TRUE(pool.Post(0, job));
    EXPECT_TRUE(pool.Post(0, job));
    EXPECT_TRUE(pool.Post(0, kUser, job));
    EXPECT_FALSE(pool.Post(0, kUser + 1, job)) << "running ones count";
    EXPECT_FALSE(pool.Post(0, kUser + 2, job));
    EXPECT_TRUE(pool.Post(0, job)) << "the service's own";
    release.set_value();
    Await("room for another", [&] { return pool.Post(0, kUser + 1, job); });
    pool.Finish();
    EXPECT_EQ(ran, 5);
}

TEST(WorkerPool, TakesNothingOnceItHasFinished) {
    WorkerPool pool(2, 1, 10);
    std::atomic<int> ran{0};
    EXPECT_TRUE(pool.Post(0, [&ran] { ++ran; }));
    pool.Finish();
    EXPECT_EQ(ran, 1);
    EXPECT_FALSE(pool.Post(0, [&ran] { ++ran; }));
    pool.Finish();
    EXPECT_EQ(ran, 1);
}

TEST(WorkerPool, TakesJobsFromJobsAndFromManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kJobs = 500;
    std::atomic<int> ran{0};
    {
        WorkerPool pool(2, kThreads, std::size_t{2} * kThreads * kJobs);
        {
            std::vector<std::unique_ptr<Background>> threads;
            for (std::size_t lane = 0; lane < kThreads; ++lane) {
                threads.push_back(std::make_unique<Background>([&pool, &ran, lane] {
                    for (int job = 0; job < kJobs; ++job) {
                        EXPECT_TRUE(pool.Post(lane, [&pool, &ran, lane] {
                            EXPECT_TRUE(pool.Post(lane, [&ran] { ++ran; }));
                        }));
                    }
                }));
            }
        }
        Await("all jobs", [&] { return ran == kThreads * kJobs; });
    }
    EXPECT_EQ(ran, kThreads * kJobs);
}

}  // namespace
}  // namespace zam_platform::testing
