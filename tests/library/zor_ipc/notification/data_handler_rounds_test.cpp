// What a handler's thread does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <future>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "data_handler/data_handler.h"
#include "data_handler/data_subscriber.h"
#include "library/zor_ipc/notification/fake_call.h"
#include "library/zor_ipc/notification/scripted_parts.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::proxy {
namespace {

using test::CountingQueue;
using test::FakeCall;
using test::Flag;
using test::PartsScript;
using test::ScriptedFactory;
using test::ScriptedManager;
using test::ScriptedSubscriber;
using test::ThreadNumber;
using test::ThreadState;
using test::WaitUntilAsleep;
using test::WaitUntilGone;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogRecord;

using CountingHandler = DataHandler<int, ScriptedManager, CountingQueue>;

class HandlerRounds : public ::testing::Test {
protected:
    HandlerRounds() {
        script_.onProcess = [this](int value) { return Process(value); };
        EXPECT_EQ(handler_.Start(manager_), 0);
    }

    /// What the processor does; a test may add to it.
    int Process(int value) {
        if (value == kMark) {
            marks_.Raise();
        }
        return action_ ? action_(value) : 0;
    }

    void Push(std::initializer_list<int> values) {
        const std::shared_ptr<CountingQueue<int>> queue = script_.queue;  // a round may drop it
        for (const int value : values) {
            queue->Push(value);
        }
    }

    /// Has the thread process a mark and go to sleep in the queue.
    void WaitUntilIdle() {
        Push({kMark});
        ASSERT_TRUE(marks_.Wait());
        ASSERT_TRUE(WaitUntilAsleep(script_.handlerThread));
    }

    /// The values processed so far.
    std::vector<std::string> Processed() const {
        std::vector<std::string> values;
        for (const std::string& entry : script_.journal.Entries()) {
            if (entry.rfind("Process ", 0) == 0) {
                values.push_back(entry.substr(8));
            }
        }
        return values;
    }

    static constexpr int kMark = 99;

    testing::RecordingLogger logger_;
    Flag marks_;
    PartsScript script_;
    std::function<int(int)> action_;
    std::shared_ptr<ScriptedManager> manager_ = std::make_shared<ScriptedManager>();
    CountingHandler handler_{std::make_unique<ScriptedSubscriber>(script_),
                             std::make_unique<ScriptedFactory>(script_)};
};

TEST_F(HandlerRounds, ProcessInOrderOnAThreadOfTheirOwn) {
    Push({3, 1, 3, 2});
    WaitUntilIdle();
    EXPECT_THAT(Processed(), ElementsAre("3", "1", "3", "2", "99"));
    EXPECT_NE(script_.handlerThread, ThreadNumber());
}

TEST_F(HandlerRounds, GoOnWhateverTheProcessorReturns) {
    action_ = [](int value) { return value == 1 ? -5 : 1; };
    Push({1, 2});
    WaitUntilIdle();
    EXPECT_THAT(Processed(), ElementsAre("1", "2", "99"));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(HandlerRounds, HandleOnceMoreWhatWaitsAtTheStop) {
    WaitUntilIdle();
    script_.onUnsubscribe = [this] { Push({4, 5}); };
    EXPECT_EQ(handler_.Stop(), 0);
    EXPECT_EQ(Processed().at(1), "4");
}

TEST_F(HandlerRounds, DropWhatComesDuringTheLastOfThem) {
    Flag inside;
    Flag leave;
    action_ = [&](int) {
        inside.Raise();
        leave.Wait();
        return 0;
    };
    Push({1});
    ASSERT_TRUE(inside.Wait());
    Push({2});
    std::atomic<pid_t> stopping{0};
    script_.onUnsubscribe = [&] { stopping = ThreadNumber(); };
    std::thread client([&] { EXPECT_EQ(handler_.Stop(), 0); });
    EXPECT_TRUE(WaitUntilAsleep(stopping));
    while (!script_.queue->IsClosed()) {
        std::this_thread::yield();
    }
    leave.Raise();
    client.join();
    EXPECT_THAT(Processed(), ElementsAre("1"));
}

/// Waits for an answer that never comes; returns when the call was ended, or never begun.
void CallInVain() {
    const FakeCall call;
    if (call.isEntered) {
        call.interruptions.wait(0);
    }
}

/// The service knows of the end, and answers nothing that it was asked before.
TEST_F(HandlerRounds, EndThoughTheirCallsAreNotAnswered) {
    Flag inside;
    action_ = [&](int) {
        inside.Raise();
        CallInVain();
        return -5;
    };
    Push({1});
    ASSERT_TRUE(inside.Wait());
    EXPECT_EQ(handler_.Stop(), 0);
    EXPECT_THAT(Processed(), ElementsAre("1"));
}

TEST_F(HandlerRounds, MakeNoCallsAnyMoreWhenTheServiceWasNotTold) {
    Flag inside;
    action_ = [&](int) {
        inside.Raise();
        CallInVain();
        return -5;
    };
    script_.onUnsubscribe = [] { *VdZorTransport_LastStatus() = 5; };
    Push({1});
    ASSERT_TRUE(inside.Wait());
    EXPECT_EQ(handler_.Stop(), 0);
    EXPECT_EQ(*VdZorTransport_LastStatus(), 0);
}

/// The observer keeps its own calls until it returns; what its round does behind it does not.
TEST_F(HandlerRounds, MakeNoCallsBehindAStopOfTheirOwnThatTheServiceWasNotTold) {
    std::vector<bool> calls;
    Flag pushed;
    Flag done;
    action_ = [&](int value) {
        if (value == 1) {
            pushed.Wait();
        } else if (value == 2) {
            calls.push_back(FakeCall().isEntered);
            EXPECT_EQ(handler_.Stop(), 0);
            calls.push_back(FakeCall().isEntered);
        } else {
            calls.push_back(FakeCall().isEntered);
            done.Raise();
        }
        return 0;
    };
    script_.onUnsubscribe = [] { *VdZorTransport_LastStatus() = 5; };
    Push({1});
    ASSERT_TRUE(WaitUntilAsleep(script_.handlerThread));
    Push({2, 3});  // one batch, since the thread holds another
    pushed.Raise();
    ASSERT_TRUE(done.Wait());
    ASSERT_TRUE(WaitUntilGone(script_.handlerThread));
    EXPECT_THAT(calls, ElementsAre(true, true, false));
    EXPECT_EQ(handler_.Start(manager_), 0);  // joins the thread
    script_.onUnsubscribe = nullptr;
    EXPECT_EQ(handler_.Stop(), 0);
}

TEST_F(HandlerRounds, HaveEndedWhenTheStopReturns) {
    WaitUntilIdle();
    EXPECT_EQ(handler_.Stop(), 0);
    EXPECT_EQ(script_.queue.use_count(), 1);
    Push({1});
    EXPECT_THAT(Processed(), ElementsAre("99"));
}

TEST_F(HandlerRounds, GoOnWhenTheSubscriberRefusesToEnd) {
    script_.unsubscribeCode = -5;
    EXPECT_EQ(handler_.Stop(), -5);
    EXPECT_FALSE(script_.queue->IsClosed());
    Push({1});
    WaitUntilIdle();
    EXPECT_THAT(Processed(), ElementsAre("1", "99"));
    EXPECT_EQ(handler_.Start(manager_), 0);  // it runs still
    script_.unsubscribeCode = 0;
    EXPECT_EQ(handler_.Stop(), 0);
    EXPECT_TRUE(script_.queue->IsClosed());
}

TEST_F(HandlerRounds, EndWithAnExceptionUntilTheNextStart) {
    Flag hold;
    action_ = [&](int value) {
        hold.Wait();
        if (value == 1) {
            throw std::runtime_error("of the test");
        }
        return 0;
    };
    Push({0});
    ASSERT_TRUE(WaitUntilAsleep(script_.handlerThread));
    Push({1, 2});  // one batch, since the thread holds another
    hold.Raise();
    ASSERT_TRUE(WaitUntilGone(script_.handlerThread));
    EXPECT_THAT(Processed(), ElementsAre("0", "1"));
    const std::vector<LogRecord> records = logger_.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, 4);
    EXPECT_EQ(records[0].file, "data_handler");
    EXPECT_EQ(records[0].function, "RunDataHandler");
    EXPECT_EQ(records[0].text, "DataHandler: ProcessData threw exception: of the test");

    Push({3});
    EXPECT_EQ(handler_.Start(manager_), 0);  // it has not been stopped
    EXPECT_EQ(handler_.Stop(), 0);
    EXPECT_EQ(handler_.Start(manager_), 0);
    WaitUntilIdle();
    EXPECT_THAT(Processed(), ElementsAre("0", "1", "99"));
    EXPECT_EQ(handler_.Stop(), 0);  // what the action uses goes now
}

TEST_F(HandlerRounds, HaveAnObjectKeptUntilTheStopAlsoWhenTheyEndedBefore) {
    action_ = [](int value) -> int { return value == 1 ? throw 5 : 0; };
    Push({1});
    ASSERT_TRUE(WaitUntilGone(script_.handlerThread));
    script_.queue.reset();  // the handler alone holds it now
    auto object = std::make_shared<int>(1);
    const std::weak_ptr<int> kept = object;
    handler_.KeepForThreads(std::move(object));
    script_.unsubscribeCode = -5;
    EXPECT_EQ(handler_.Stop(), -5);
    EXPECT_FALSE(kept.expired());
    script_.unsubscribeCode = 0;
    EXPECT_EQ(handler_.Stop(), 0);
    EXPECT_TRUE(kept.expired());
    object = std::make_shared<int>(2);
    const std::weak_ptr<int> unneeded = object;
    handler_.KeepForThreads(std::move(object));
    EXPECT_TRUE(unneeded.expired());
}

TEST_F(HandlerRounds, HaveAnObjectKeptWhileTheSubscriberHoldsTheQueue) {
    auto object = std::make_shared<int>(1);
    const std::weak_ptr<int> kept = object;
    handler_.KeepForThreads(std::move(object));
    EXPECT_EQ(handler_.Stop(), 0);
    EXPECT_FALSE(kept.expired());
    script_.queue.reset();
    EXPECT_TRUE(kept.expired());
}

TEST_F(HandlerRounds, HaveNothingKeptBeforeTheFirstStart) {
    PartsScript script;
    CountingHandler handler(std::make_unique<ScriptedSubscriber>(script),
                            std::make_unique<ScriptedFactory>(script));
    auto object = std::make_shared<int>(1);
    const std::weak_ptr<int> unneeded = object;
    handler.KeepForThreads(std::move(object));
    EXPECT_TRUE(unneeded.expired());
}

/// A start within a round leaves two threads: the second run shares what the first one keeps.
TEST_F(HandlerRounds, HaveAnObjectKeptUntilTheLastHasEnded) {
    Flag leave;
    std::promise<std::weak_ptr<int>> told;
    action_ = [&](int value) {
        if (value == 1) {
            EXPECT_EQ(handler_.Stop(), 0);
            script_.queue.reset();  // the thread alone holds it now
            auto object = std::make_shared<int>(1);
            const std::weak_ptr<int> kept = object;
            handler_.KeepForThreads(std::move(object));
            EXPECT_EQ(handler_.Start(manager_), 0);
            told.set_value(kept);
            leave.Wait();
        }
        return 0;
    };
    Push({1});
    const std::weak_ptr<int> kept = told.get_future().get();
    const std::atomic<pid_t> first{script_.handlerThread.load()};
    leave.Raise();
    ASSERT_TRUE(WaitUntilGone(first));
    EXPECT_FALSE(kept.expired());
    WaitUntilIdle();
    EXPECT_EQ(handler_.Stop(), 0);
    script_.queue.reset();
    EXPECT_TRUE(kept.expired());
}

/// What the processor uses may be what is kept.
TEST(HandlerEnd, LetsTheProcessorGoBeforeWhatIsKept) {
    PartsScript script;
    const auto manager = std::make_shared<ScriptedManager>();
    auto handler = std::make_unique<CountingHandler>(std::make_unique<ScriptedSubscriber>(script),
                                                     std::make_unique<ScriptedFactory>(script));
    Flag gone;
    Flag ready;
    script.onProcess = [&](int) {
        ready.Wait();
        script.queue.reset();
        handler.reset();  // from here on the thread alone holds the rest
        return 0;
    };
    ASSERT_EQ(handler->Start(manager), 0);
    handler->KeepForThreads(std::shared_ptr<const void>(&script, [&](const void*) {
        script.journal.Add("object is gone");
        gone.Raise();
    }));
    script.queue->Push(1);
    ready.Raise();
    ASSERT_TRUE(gone.Wait());
    ASSERT_TRUE(WaitUntilGone(script.handlerThread));
    EXPECT_THAT(script.journal.Entries(),
                ElementsAre("Subscribe", "Create", "Process 1", "Unsubscribe", "~Factory",
                            "~Subscriber", "~Processor", "object is gone"));
}

/// A thread that has stopped its own run may go on with what it took out of the queue.
TEST_F(HandlerRounds, HaveAnObjectKeptBehindAStopOfTheirOwn) {
    std::promise<std::weak_ptr<int>> told;
    action_ = [&](int value) {
        if (value == 1) {
            EXPECT_EQ(handler_.Stop(), 0);
            script_.queue.reset();  // the thread alone holds it now
            auto object = std::make_shared<int>(1);
            const std::weak_ptr<int> kept = object;
            handler_.KeepForThreads(std::move(object));
            EXPECT_FALSE(kept.expired());
            told.set_value(kept);
        }
        return 0;
    };
    Push({1});
    const std::weak_ptr<int> kept = told.get_future().get();
    ASSERT_TRUE(WaitUntilGone(script_.handlerThread));
    EXPECT_TRUE(kept.expired());
    EXPECT_EQ(handler_.Start(manager_), 0);  // joins the thread: what the action uses goes now
    EXPECT_EQ(handler_.Stop(), 0);
}

TEST_F(HandlerRounds, EndWithAnythingThrown) {
    action_ = [](int) -> int { throw 5; };
    Push({1});
    ASSERT_TRUE(WaitUntilGone(script_.handlerThread));
    const std::vector<LogRecord> records = logger_.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, 4);
    EXPECT_EQ(records[0].file, "data_handler");
    EXPECT_EQ(records[0].function, "RunDataHandler");
    EXPECT_EQ(records[0].text, "DataHandler: ProcessData threw exception: non-std exception");
}

TEST_F(HandlerRounds, WaitWhenTheQueueWasClosedUnderThem) {
    WaitUntilIdle();
    Push({1});
    script_.queue->Close();
    while (Processed().size() < 2) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(WaitUntilAsleep(script_.handlerThread));
    // The mark, the value, and the look that found the queue closed.
    EXPECT_LE(script_.queue->pops, 3);
    EXPECT_EQ(handler_.Stop(), 0);
    EXPECT_LE(script_.queue->pops, 3);
    EXPECT_THAT(Processed(), ElementsAre("99", "1"));
}

/// Tells what threads the pipeline's two halves run on.
struct ThreadsSeen {
    std::atomic<pid_t> subscriber{0};
    std::atomic<pid_t> handler{0};
    Flag unregistered;
};

class SeenProvider final : public IDataProvider<int> {
public:
    explicit SeenProvider(ThreadsSeen& seen) : seen_(seen) {}

    int Register() override { return 0; }
    int GetData(int& value) override {
        if (seen_.subscriber.exchange(ThreadNumber()) == 0) {
            value = 1;
            return 0;
        }
        seen_.unregistered.Wait();
        return 1;
    }
    int Unregister() override {
        seen_.unregistered.Raise();
        return 0;
    }

private:
    ThreadsSeen& seen_;
};

void ExpectOwnSignalsOnly(const ThreadState& thread) {
    for (int signal = 1; signal < 32; ++signal) {
        SCOPED_TRACE(::strsignal(signal));
        const bool ofOwnFault = signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE ||
                                signal == SIGILL || signal == SIGTRAP || signal == SIGSYS ||
                                signal == SIGABRT;
        const bool cannotBeBlocked = signal == SIGKILL || signal == SIGSTOP;
        EXPECT_EQ(thread.Blocks(signal), !ofOwnFault && !cannotBeBlocked);
    }
}

TEST(PipelineThreads, CarryNamesAndLeaveSignalsToTheApplication) {
    ThreadsSeen seen;
    PartsScript script;
    script.onProcess = [&](int) {
        seen.handler = ThreadNumber();
        return 0;
    };
    using Subscriber = DataSubscriber<int, CountingQueue>;
    CountingHandler handler(
        std::make_unique<Subscriber>(std::make_unique<SeenProvider>(seen), "one_half"),
        std::make_unique<ScriptedFactory>(script), "the_other_half");
    const auto manager = std::make_shared<ScriptedManager>();
    const ThreadState before = ThreadState::Of(ThreadNumber());
    ASSERT_EQ(handler.Start(manager), 0);
    ASSERT_TRUE(WaitUntilAsleep(seen.handler));
    const ThreadState subscriberThread = ThreadState::Of(seen.subscriber);
    const ThreadState handlerThread = ThreadState::Of(seen.handler);
    EXPECT_EQ(subscriberThread.name, "one_half");
    EXPECT_EQ(handlerThread.name, "the_other_half");
    ExpectOwnSignalsOnly(subscriberThread);
    ExpectOwnSignalsOnly(handlerThread);
    const ThreadState after = ThreadState::Of(ThreadNumber());
    EXPECT_EQ(after.blockedSignals, before.blockedSignals);
    EXPECT_EQ(after.name, before.name);
}

}  // namespace
}  // namespace zam_connector::proxy
