#include "task_gate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "library/zor_ipc/notification/scripted_parts.h"

namespace zam_connector::proxy {
namespace {

using test::Flag;
using test::Journal;
using test::ThreadNumber;
using test::WaitUntilAsleep;
using ::testing::ElementsAre;

/// What passes the gate of these tests: a name, and what to do.
struct Task {
    std::string name;
    std::function<int()> action;
};

class TaskGateTest : public ::testing::Test {
protected:
    int Pass(std::string name, std::function<int()> action = nullptr) {
        return gate_.Pass(
            Task{std::move(name), std::move(action)},
            [this](const Task& task) {
                journal_.Add(task.name);
                return task.action ? task.action() : 0;
            },
            [this](const Task& task) {
                journal_.Add(task.name + " left");
                if (task.action) {
                    task.action();
                }
            });
    }

    /// Runs on a handler thread and waits for its end.
    void OnHandlerThread(std::function<void()> rounds) {
        HandlerThreads threads("a_test");
        threads.Start(std::make_shared<qor::utils::CancellationToken>(), std::move(rounds));
    }

    /// Passes the gate on a handler thread.
    int PassOnHandlerThread(const std::string& name, const std::function<int()>& action = nullptr) {
        int result = -1;
        OnHandlerThread([&] { result = Pass(name, action); });
        return result;
    }

    Journal journal_;
    TaskGate<Task> gate_;
};

TEST_F(TaskGateTest, ReturnsWhatTheTaskReturned) {
    EXPECT_EQ(Pass("a", [] { return -3; }), -3);
    EXPECT_EQ(Pass("b", [] { return 2; }), 2);
    EXPECT_THAT(journal_.Entries(), ElementsAre("a", "b"));
}

TEST_F(TaskGateTest, LetsAHandlerThreadPassWhenItIsFree) {
    EXPECT_EQ(PassOnHandlerThread("a", [] { return -3; }), -3);
    EXPECT_THAT(journal_.Entries(), ElementsAre("a"));
}

TEST_F(TaskGateTest, HasAThreadOfTheApplicationWait) {
    Flag inside;
    Flag leave;
    std::thread first([&] {
        Pass("first", [&] {
            inside.Raise();
            leave.Wait();
            journal_.Add("first ends");
            return 0;
        });
    });
    ASSERT_TRUE(inside.Wait());
    std::atomic<pid_t> number{0};
    int result = 0;
    std::thread second([&] {
        number = ThreadNumber();
        result = Pass("second", [] { return 7; });
    });
    EXPECT_TRUE(WaitUntilAsleep(number));
    EXPECT_THAT(journal_.Entries(), ElementsAre("first"));
    leave.Raise();
    first.join();
    second.join();
    EXPECT_EQ(result, 7);
    EXPECT_THAT(journal_.Entries(), ElementsAre("first", "first ends", "second"));
}

TEST_F(TaskGateTest, LetsAllThroughThatWait) {
    Flag inside;
    Flag leave;
    std::thread first([&] {
        Pass("first", [&] {
            inside.Raise();
            leave.Wait();
            return 0;
        });
    });
    ASSERT_TRUE(inside.Wait());
    std::atomic<pid_t> numbers[3] = {};
    std::vector<std::thread> others;
    for (std::atomic<pid_t>& number : numbers) {
        others.emplace_back([this, &number] {
            number = ThreadNumber();
            Pass("other");
        });
        EXPECT_TRUE(WaitUntilAsleep(number));
    }
    leave.Raise();
    first.join();
    for (std::thread& other : others) {
        other.join();
    }
    EXPECT_THAT(journal_.Entries(), ElementsAre("first", "other", "other", "other"));
}

TEST_F(TaskGateTest, HasTheHolderDoWhatHandlerThreadsLeave) {
    const int result = Pass("own", [this] {
        EXPECT_EQ(PassOnHandlerThread("a", [] { return -3; }), 0);
        EXPECT_EQ(PassOnHandlerThread("b"), 0);
        journal_.Add("own ends");
        return 7;
    });
    EXPECT_EQ(result, 7);
    EXPECT_THAT(journal_.Entries(), ElementsAre("own", "own ends", "a left", "b left"));
}

TEST_F(TaskGateTest, HasAHandlerThreadDoWhatItLeavesItself) {
    OnHandlerThread([this] {
        EXPECT_EQ(Pass("own",
                       [this] {
                           EXPECT_EQ(Pass("inner", [] { return -3; }), 0);
                           journal_.Add("own ends");
                           return 7;
                       }),
                  7);
    });
    EXPECT_THAT(journal_.Entries(), ElementsAre("own", "own ends", "inner left"));
}

TEST_F(TaskGateTest, HasTheHolderDoWhatIsLeftMeanwhile) {
    Pass("own",
         [this] { return PassOnHandlerThread("a", [this] { return PassOnHandlerThread("b"); }); });
    EXPECT_THAT(journal_.Entries(), ElementsAre("own", "a left", "b left"));
}

TEST_F(TaskGateTest, LeavesTheTransportStatusOfTheHoldersOwnTask) {
    std::int32_t& last = *VdZorTransport_LastStatus();
    for (const int own : {0, 3}) {
        Pass("own", [&] {
            PassOnHandlerThread("a", [] {
                *VdZorTransport_LastStatus() = 4;
                return -3;
            });
            last = own;
            return 0;
        });
        EXPECT_EQ(last, own);
    }
    last = 0;
}

TEST_F(TaskGateTest, ThrowsOnlyWhenAllIsDone) {
    const auto throwing = [this] {
        Pass("own", [this]() -> int {
            PassOnHandlerThread("a");
            throw std::runtime_error("of the test");
        });
    };
    EXPECT_THROW(throwing(), std::runtime_error);
    EXPECT_THAT(journal_.Entries(), ElementsAre("own", "a left"));
    EXPECT_EQ(Pass("next", [] { return 7; }), 7);
    EXPECT_EQ(PassOnHandlerThread("last", [] { return 8; }), 8);
}

TEST_F(TaskGateTest, ThrowsWhateverTheTaskThrows) {
    EXPECT_THROW(Pass("own", []() -> int { throw 5; }), int);
    EXPECT_EQ(Pass("next", [] { return 7; }), 7);
}

TEST_F(TaskGateTest, LeavesTheTasksOfOneHolderToNoOther) {
    Pass("own", [this] { return PassOnHandlerThread("a"); });
    Pass("next");
    EXPECT_THAT(journal_.Entries(), ElementsAre("own", "a left", "next"));
}

}  // namespace
}  // namespace zam_connector::proxy
