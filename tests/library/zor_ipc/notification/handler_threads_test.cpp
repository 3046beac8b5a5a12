#include "data_handler/handler_threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "call_scope.h"
#include "library/zor_ipc/notification/fake_call.h"
#include "library/zor_ipc/notification/scripted_parts.h"

namespace zam_connector::proxy {
namespace {

using test::FakeCall;
using test::Flag;
using test::Journal;
using test::kBound;
using test::ThreadNumber;
using test::ThreadState;
using test::WaitUntilAsleep;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Token = qor::utils::CancellationToken;

class HandlerThreadsTest : public ::testing::Test {
protected:
    /// Starts a thread whose rounds journal their begin and end, and last until `leave`.
    std::shared_ptr<Token> StartUntil(const Flag& leave, const std::string& name) {
        auto token = std::make_shared<Token>();
        threads_->Start(token, [this, &leave, name] {
            journal_.Add(name + " begins");
            leave.Wait();
            journal_.Add(name + " ends");
        });
        return token;
    }

    bool WaitFor(const std::string& entry) const {
        const auto deadline = std::chrono::steady_clock::now() + kBound;
        while (std::chrono::steady_clock::now() < deadline) {
            for (const std::string& present : journal_.Entries()) {
                if (present == entry) {
                    return true;
                }
            }
            std::this_thread::yield();
        }
        return false;
    }

    /// Something whose end is journalled.
    std::shared_ptr<const void> Object(const std::string& name) {
        return {this, [this, name](const void*) { journal_.Add(name + " is gone"); }};
    }

    Journal journal_;
    std::unique_ptr<HandlerThreads> threads_ = std::make_unique<HandlerThreads>("a_test");
};

TEST_F(HandlerThreadsTest, AreToldFromOtherThreads) {
    EXPECT_FALSE(HandlerThreads::IsCurrent());
    bool current = false;
    std::string name;
    threads_->Start(std::make_shared<Token>(), [&] {
        current = HandlerThreads::IsCurrent();
        name = ThreadState::Of(ThreadNumber()).name;
    });
    threads_->Finish();
    EXPECT_TRUE(current);
    EXPECT_EQ(name, "a_test");
    EXPECT_FALSE(HandlerThreads::IsCurrent());
}

TEST_F(HandlerThreadsTest, TakeTurnsInTheOrderOfTheirStarts) {
    Flag leaveFirst;
    Flag leaveSecond;
    StartUntil(leaveFirst, "first");
    ASSERT_TRUE(WaitFor("first begins"));
    StartUntil(leaveSecond, "second");  // a start waits for nobody
    leaveSecond.Raise();
    EXPECT_THAT(journal_.Entries(), ElementsAre("first begins"));
    leaveFirst.Raise();
    threads_->Finish();
    EXPECT_THAT(journal_.Entries(),
                ElementsAre("first begins", "first ends", "second begins", "second ends"));
}

TEST_F(HandlerThreadsTest, DoNothingWhenTheirTokenIsCancelledFirst) {
    const auto token = std::make_shared<Token>(Token::ExecutionAction::Cancel);
    threads_->Start(token, [this] { journal_.Add("begins"); });
    threads_->Finish();
    EXPECT_THAT(journal_.Entries(), IsEmpty());
}

TEST_F(HandlerThreadsTest, StopWaitingForTheirTurnWhenTheirTokenIsCancelled) {
    Flag leave;
    StartUntil(leave, "first");
    ASSERT_TRUE(WaitFor("first begins"));
    const auto token = std::make_shared<Token>();
    threads_->Start(token, [this, object = Object("second")] { journal_.Add("second begins"); });
    token->Cancel();
    std::thread finishing([this] { threads_->Finish(); });
    EXPECT_TRUE(WaitFor("second is gone"));  // while the first still has the turn
    EXPECT_THAT(journal_.Entries(), ElementsAre("first begins", "second is gone"));
    leave.Raise();
    finishing.join();
}

TEST_F(HandlerThreadsTest, AreJoinedByFinish) {
    Flag leave;
    StartUntil(leave, "one");
    std::atomic<pid_t> number{0};
    std::thread finishing([&] {
        number = ThreadNumber();
        threads_->Finish();
        journal_.Add("finished");
    });
    EXPECT_TRUE(WaitFor("one begins"));
    EXPECT_TRUE(WaitUntilAsleep(number));
    leave.Raise();
    finishing.join();
    EXPECT_THAT(journal_.Entries(), ElementsAre("one begins", "one ends", "finished"));
    threads_->Finish();
}

TEST_F(HandlerThreadsTest, AreNotJoinedByOneOfThem) {
    Flag started;
    threads_->Start(std::make_shared<Token>(), [this, &started] {
        started.Wait();
        threads_->Finish();
        journal_.Add("finished inside");
    });
    started.Raise();
    ASSERT_TRUE(WaitFor("finished inside"));
    threads_->Finish();
}

TEST_F(HandlerThreadsTest, AreNotJoinedByThoseOfAnotherPipeline) {
    Flag leave;
    StartUntil(leave, "one");
    ASSERT_TRUE(WaitFor("one begins"));
    HandlerThreads others("others");
    others.Start(std::make_shared<Token>(), [this] { threads_->Finish(); });
    others.Finish();
    EXPECT_THAT(journal_.Entries(), ElementsAre("one begins"));
    leave.Raise();
    threads_->Finish();
    EXPECT_THAT(journal_.Entries(), ElementsAre("one begins", "one ends"));
}

TEST_F(HandlerThreadsTest, OutliveTheirObjectWhenOneOfThemDestroysIt) {
    Flag started;
    threads_->Start(std::make_shared<Token>(), [this, &started, object = Object("rounds")] {
        started.Wait();
        threads_.reset();
        journal_.Add("goes on");
    });
    started.Raise();
    ASSERT_TRUE(WaitFor("rounds is gone"));
    EXPECT_THAT(journal_.Entries(), ElementsAre("goes on", "rounds is gone"));
}

TEST_F(HandlerThreadsTest, AreJoinedByTheEndOfTheirObject) {
    Flag leave;
    StartUntil(leave, "one");
    ASSERT_TRUE(WaitFor("one begins"));
    leave.Raise();
    threads_.reset();
    EXPECT_THAT(journal_.Entries(), ElementsAre("one begins", "one ends"));
}

/// A handler thread may be the one that finds them ended, and it must wait for nobody.
TEST_F(HandlerThreadsTest, AreNotJoinedByAStartBeforeTheirRoundsAreDestroyed) {
    Flag destroying;
    Flag leave;
    threads_->Start(std::make_shared<Token>(),
                    [object = std::shared_ptr<const void>(this, [&destroying, &leave](const void*) {
                         destroying.Raise();
                         leave.Wait();
                     })] {});
    ASSERT_TRUE(destroying.Wait());
    threads_->Start(std::make_shared<Token>(), [this] { journal_.Add("second begins"); });
    EXPECT_TRUE(WaitFor("second begins"));
    leave.Raise();
    threads_->Finish();
}

/// Each run would leave one behind otherwise.
TEST_F(HandlerThreadsTest, AreLetGoByAStartWhenTheyHaveEnded) {
    auto calls = std::make_shared<CallCanceller>();
    const std::weak_ptr<const void> held = calls;
    threads_->Start(
        std::make_shared<Token>(), [] {}, std::move(calls));
    const auto cancelled = std::make_shared<Token>();
    cancelled->Cancel();
    EXPECT_TRUE(zam_test::Eventually([&] {
        threads_->Start(cancelled, [] {});
        return held.expired();
    }));
}

TEST(HandlerThreadsTime, CountsWhatTheFarewellHasTaken) {
    using std::chrono::milliseconds;
    EXPECT_EQ(HandlerThreads::LeftForCalls(milliseconds(0)), HandlerThreads::kLongestCalls);
    EXPECT_EQ(HandlerThreads::LeftForCalls(milliseconds(1)), milliseconds(749));
    EXPECT_EQ(HandlerThreads::LeftForCalls(milliseconds(500)), milliseconds(250));
    EXPECT_EQ(HandlerThreads::LeftForCalls(milliseconds(501)), milliseconds(250));
    EXPECT_EQ(HandlerThreads::LeftForCalls(std::chrono::hours(1)), milliseconds(250));
}

/// Threads whose rounds make calls, one run of them.
class HandlerThreadsCalls : public HandlerThreadsTest {
protected:
    void Start(std::function<void()> rounds) {
        threads_->Start(std::make_shared<Token>(), std::move(rounds), calls_);
    }

    /// A call that nobody answers; returns when it was ended, or never begun.
    static void CallInVain() {
        const FakeCall call;
        if (call.isEntered) {
            call.interruptions.wait(0);
        }
    }

    const std::shared_ptr<CallCanceller> calls_ = std::make_shared<CallCanceller>();
};

TEST_F(HandlerThreadsCalls, AreEndedWhenTheirTimeIsOver) {
    Start([this] {
        CallInVain();
        CallInVain();
        journal_.Add("ended");
    });
    threads_->Finish(std::chrono::milliseconds(1));
    EXPECT_THAT(journal_.Entries(), ElementsAre("ended"));
}

TEST_F(HandlerThreadsCalls, AreLetFinishInTheirTime) {
    Flag made;
    Flag answer;
    std::atomic<int> interruptions{0};
    Start([&] {
        const FakeCall call;
        made.Raise();
        answer.Wait();
        interruptions = call.interruptions.load();
    });
    ASSERT_TRUE(made.Wait());
    std::atomic<pid_t> number{0};
    std::thread finishing([&] {
        number = ThreadNumber();
        threads_->Finish(kBound);
    });
    EXPECT_TRUE(WaitUntilAsleep(number));
    answer.Raise();
    finishing.join();
    EXPECT_EQ(interruptions, 0);
}

/// What an observer does, its calls included, is the application's, and has no bound.
TEST_F(HandlerThreadsCalls, OfAnObserverAreNotEnded) {
    Flag inside;
    Flag leave;
    bool isFree = false;
    Start([&] {
        {
            const HandlerThreads::InObserver observer;
            inside.Raise();
            leave.Wait();
            const FakeCall call;
            isFree = call.isEntered && call.interruptions == 0;
        }
        CallInVain();
    });
    ASSERT_TRUE(inside.Wait());
    std::atomic<pid_t> number{0};
    std::thread finishing([&] {
        number = ThreadNumber();
        threads_->Finish(std::chrono::milliseconds(1));
    });
    EXPECT_TRUE(WaitUntilAsleep(number));
    leave.Raise();
    finishing.join();
    EXPECT_TRUE(isFree);
}

TEST_F(HandlerThreadsCalls, AreNotEndedForTheTimeThatAnObserverTook) {
    constexpr std::chrono::milliseconds kLongest{400};
    std::atomic<pid_t> number{0};
    Flag inside;
    bool isFree = false;
    Start([&] {
        {
            const HandlerThreads::InObserver observer;
            inside.Raise();
            EXPECT_TRUE(WaitUntilAsleep(number));
            // Longer than what all of it has.
            const auto end = std::chrono::steady_clock::now() + kLongest * 5 / 4;
            while (std::chrono::steady_clock::now() < end) {
                std::this_thread::yield();
            }
        }
        isFree = FakeCall().isEntered;
    });
    ASSERT_TRUE(inside.Wait());
    std::thread finishing([&] {
        number = ThreadNumber();
        threads_->Finish(kLongest);
    });
    finishing.join();
    EXPECT_TRUE(isFree);
}

/// What was fetched just before the time was over is still told.
TEST_F(HandlerThreadsCalls, OfAnObserverThatBeginsWhenTheTimeIsOverAreNotEnded) {
    bool isFree = false;
    Start([&] {
        CallInVain();
        {
            const HandlerThreads::InObserver observer;
            const FakeCall call;
            isFree = call.isEntered && call.interruptions == 0;
        }
        CallInVain();
    });
    threads_->Finish(std::chrono::milliseconds(1));
    EXPECT_TRUE(isFree);
}

TEST_F(HandlerThreadsCalls, CloseTheirChannelsWhenTheTimeIsOver) {
    Start([this] {
        CallInVain();
        ChannelCloseScope scope;
        EXPECT_NE(FakeCall::Bounds()->deadlineNs, 0);
        const int code = scope.Close([] { return FakeCall().isEntered ? 0 : -1; });
        journal_.Add(code == 0 ? "closed" : "left open");
    });
    threads_->Finish(std::chrono::milliseconds(1));
    EXPECT_THAT(journal_.Entries(), ElementsAre("closed"));
}

TEST_F(HandlerThreadsCalls, CloseNoChannelsWhenAllCallsWereEnded) {
    Flag made;
    Start([&] {
        made.Raise();
        CallInVain();
        ChannelCloseScope scope;
        const int code = scope.Close([] { return FakeCall().isEntered ? 0 : -1; });
        journal_.Add(code == 0 ? "closed" : "left open");
    });
    ASSERT_TRUE(made.Wait());
    threads_->EndCalls();
    threads_->Finish(std::chrono::milliseconds(1));
    EXPECT_THAT(journal_.Entries(), ElementsAre("left open"));
}

/// The time is that of all of them together, so that the end has one bound.
TEST_F(HandlerThreadsCalls, OfThreadsThatWereLeftForLaterAreEndedToo) {
    Flag made;
    Start([&] {
        made.Raise();
        CallInVain();
        journal_.Add("ended");
    });
    ASSERT_TRUE(made.Wait());
    const auto token = std::make_shared<Token>();
    threads_->Start(token, [] {});
    token->Cancel();
    threads_->Finish(std::chrono::milliseconds(1));
    EXPECT_THAT(journal_.Entries(), ElementsAre("ended"));
}

TEST_F(HandlerThreadsCalls, AreEndedForAllButTheCallingThread) {
    std::promise<void> isStarted;
    Start([&, started = isStarted.get_future().share()] {
        started.wait();  // one thread at a time
        threads_->EndCalls();
        EXPECT_TRUE(FakeCall().isEntered);
    });
    isStarted.set_value();
    threads_->Finish(kBound);
    EXPECT_FALSE(calls_->IsCancelled());
    threads_->Start(
        std::make_shared<Token>(), [] {}, calls_);
    threads_->EndCalls();
    EXPECT_TRUE(calls_->IsCancelled());
}

TEST_F(HandlerThreadsTest, LeaveNothingBehindWhenTheyCannotBeStarted) {
    {
        const test::NoMoreThreads none;
        EXPECT_THROW(threads_->Start(std::make_shared<Token>(),
                                     [this, object = Object("rounds")] { journal_.Add("runs"); }),
                     std::system_error);
    }
    EXPECT_THAT(journal_.Entries(), ElementsAre("rounds is gone"));
    threads_->Start(std::make_shared<Token>(), [this] { journal_.Add("runs"); });
    threads_->Finish();
    EXPECT_THAT(journal_.Entries(), ElementsAre("rounds is gone", "runs"));
}

}  // namespace
}  // namespace zam_connector::proxy
