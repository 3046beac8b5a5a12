// Starts, stops and the end of a handler, over scripted parts.

#include "data_handler/data_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "library/zor_ipc/notification/refused_at.h"
#include "library/zor_ipc/notification/scripted_parts.h"
#include "support/result_codes.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::proxy {
namespace {

using test::CountingQueue;
using test::PartsScript;
using test::ScriptedFactory;
using test::ScriptedManager;
using test::ScriptedSubscriber;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogRecord;

using test::kUnspecified;

using CountingHandler = DataHandler<int, ScriptedManager, CountingQueue>;

class DataHandlerTest : public ::testing::Test {
protected:
    std::vector<std::string> Calls() const { return script_.journal.Entries(); }

    void EndHandler() { handler_.reset(); }

    void ExpectLogged(const char* function, const char* text) {
        const std::vector<LogRecord> records = logger_.Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, 4);
        EXPECT_EQ(records[0].file, "data_handler");
        EXPECT_EQ(records[0].function, function);
        EXPECT_EQ(records[0].text, text);
    }

    testing::RecordingLogger logger_;
    PartsScript script_;
    std::shared_ptr<ScriptedManager> manager_ = std::make_shared<ScriptedManager>();
    std::unique_ptr<CountingHandler> handler_ = std::make_unique<CountingHandler>(
        std::make_unique<ScriptedSubscriber>(script_), std::make_unique<ScriptedFactory>(script_));
};

TEST(DataHandler, RefusesToBeWithoutItsParts) {
    PartsScript script;
    EXPECT_EQ(test::RefusedAt(
                  [&] { CountingHandler(nullptr, std::make_unique<ScriptedFactory>(script)); }),
              "data_handler:31");
    EXPECT_EQ(test::RefusedAt(
                  [&] { CountingHandler(std::make_unique<ScriptedSubscriber>(script), nullptr); }),
              "data_handler:32");
    EXPECT_EQ(test::RefusedAt([] { CountingHandler(nullptr, nullptr); }), "data_handler:31");
}

TEST_F(DataHandlerTest, CallsNothingWhenItIsMade) {
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(DataHandlerTest, StopsOnlyWhatWasStarted) {
    EXPECT_EQ(handler_->Stop(), 0);
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(DataHandlerTest, SubscribesWithAnEmptyQueueAndThenMakesTheProcessor) {
    script_.onCreate = [&] { EXPECT_FALSE(script_.queue->IsClosed()); };
    EXPECT_EQ(handler_->Start(manager_), 0);
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create"));
    EXPECT_EQ(script_.manager.lock(), manager_);
    EXPECT_EQ(script_.queue->pushes, 0);
}

TEST_F(DataHandlerTest, StartsOnce) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    EXPECT_EQ(handler_->Start(manager_), 0);
    EXPECT_EQ(handler_->Start({}), 0);  // not even the manager is looked at
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create"));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(DataHandlerTest, RefusesToStartForAManagerThatIsGone) {
    const std::weak_ptr<ScriptedManager> gone = manager_;
    manager_.reset();
    EXPECT_EQ(handler_->Start(gone), kUnspecified);
    ExpectLogged("Start", "DataHandler: dataManger weak ptr is expired!");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_EQ(handler_->Stop(), 0);
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(DataHandlerTest, StaysStoppedWhenTheSubscriberRefuses) {
    script_.subscribeCode = -7;
    EXPECT_EQ(handler_->Start(manager_), -7);
    EXPECT_EQ(handler_->Stop(), 0);
    EXPECT_THAT(Calls(), ElementsAre("Subscribe"));
    const std::shared_ptr<CountingQueue<int>> first = script_.queue;
    script_.subscribeCode = 0;
    EXPECT_EQ(handler_->Start(manager_), 0);
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Subscribe", "Create"));
    EXPECT_NE(script_.queue, first);
    EXPECT_EQ(first->pops, 0);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(DataHandlerTest, TakesPositiveCodesForSuccess) {
    script_.subscribeCode = 1;
    script_.unsubscribeCode = 1;
    EXPECT_EQ(handler_->Start(manager_), 0);
    EXPECT_EQ(handler_->Stop(), 0);
    EXPECT_TRUE(script_.queue->IsClosed());
}

TEST_F(DataHandlerTest, UnsubscribesBeforeItClosesTheQueue) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    script_.onUnsubscribe = [&] { EXPECT_FALSE(script_.queue->IsClosed()); };
    EXPECT_EQ(handler_->Stop(), 0);
    EXPECT_TRUE(script_.queue->IsClosed());
    EXPECT_EQ(script_.queue->closes, 1);
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create", "Unsubscribe"));
    EXPECT_EQ(handler_->Stop(), 0);
    EXPECT_EQ(Calls().size(), 3U);
}

TEST_F(DataHandlerTest, ClosesNoQueueThatIsClosed) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    script_.onUnsubscribe = [&] { script_.queue->Close(); };
    EXPECT_EQ(handler_->Stop(), 0);
    EXPECT_EQ(script_.queue->closes, 1);
}

TEST_F(DataHandlerTest, ReleasesTheQueueWhenItStops) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    const std::weak_ptr<CountingQueue<int>> queue = script_.queue;
    script_.queue.reset();
    EXPECT_FALSE(queue.expired());
    EXPECT_EQ(handler_->Stop(), 0);
    EXPECT_TRUE(queue.expired());
}

TEST_F(DataHandlerTest, HasANewQueueAndTheSameProcessorInEachRun) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    const std::shared_ptr<CountingQueue<int>> first = script_.queue;
    first->Push(1);
    while (script_.processor == nullptr) {
        std::this_thread::yield();
    }
    const void* const processor = script_.processor;
    ASSERT_EQ(handler_->Stop(), 0);
    ASSERT_EQ(handler_->Start(manager_), 0);
    EXPECT_NE(script_.queue, first);
    EXPECT_FALSE(script_.queue->IsClosed());
    test::Flag processed;
    script_.onProcess = [&](int) {
        processed.Raise();
        return 0;
    };
    script_.queue->Push(2);
    EXPECT_TRUE(processed.Wait());
    EXPECT_EQ(script_.processor, processor);
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create", "Process 1", "Unsubscribe", "Subscribe",
                                     "Process 2"));
}

TEST_F(DataHandlerTest, UndoesAStartWhenTheFactoryThrows) {
    script_.onCreate = [] { throw std::runtime_error("of the test"); };
    EXPECT_THROW(handler_->Start(manager_), std::runtime_error);
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create", "Unsubscribe"));
    EXPECT_EQ(script_.queue.use_count(), 1);
    EXPECT_EQ(handler_->Stop(), 0);
    EXPECT_EQ(Calls().size(), 3U);
    script_.onCreate = nullptr;
    EXPECT_EQ(handler_->Start(manager_), 0);
    EXPECT_EQ(Calls().size(), 5U);
}

TEST_F(DataHandlerTest, ThrowsWhatTheFactoryThrowsAlsoWhenTheSubscriberRefusesToEnd) {
    script_.unsubscribeCode = -5;
    script_.onCreate = [] { throw 5; };
    EXPECT_THROW(handler_->Start(manager_), int);
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create", "Unsubscribe"));
}

TEST_F(DataHandlerTest, UndoesAStartInReverseWhenThereIsNoThread) {
    {
        const test::NoMoreThreads none;
        EXPECT_THROW(handler_->Start(manager_), std::system_error);
    }
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create", "~Processor", "Unsubscribe"));
    EXPECT_EQ(script_.queue.use_count(), 1);
    EXPECT_EQ(handler_->Start(manager_), 0);
}

TEST_F(DataHandlerTest, KeepsTheProcessorWhenThereIsNoThreadForALaterRun) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    ASSERT_EQ(handler_->Stop(), 0);
    {
        const test::NoMoreThreads none;
        EXPECT_THROW(handler_->Start(manager_), std::system_error);
    }
    EXPECT_THAT(Calls(),
                ElementsAre("Subscribe", "Create", "Unsubscribe", "Subscribe", "Unsubscribe"));
}

TEST_F(DataHandlerTest, EndsWithoutACallWhenItWasNotStarted) {
    EndHandler();
    EXPECT_THAT(Calls(), ElementsAre("~Factory", "~Subscriber"));
}

TEST_F(DataHandlerTest, StopsWhenItEnds) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    EndHandler();
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create", "Unsubscribe", "~Processor", "~Factory",
                                     "~Subscriber"));
    EXPECT_TRUE(script_.queue->IsClosed());
    EXPECT_EQ(script_.queue.use_count(), 1);
}

TEST_F(DataHandlerTest, EndsWithoutAnotherStopWhenItWasStopped) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    ASSERT_EQ(handler_->Stop(), 0);
    EndHandler();
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create", "Unsubscribe", "~Processor", "~Factory",
                                     "~Subscriber"));
}

TEST_F(DataHandlerTest, LogsWhatItsStopThrowsWhenItEnds) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    script_.onUnsubscribe = [] { throw std::runtime_error("of the test"); };
    EndHandler();
    ExpectLogged("~DataHandler", "DataHandler: Stop threw exception: of the test");
    EXPECT_THAT(Calls(), ElementsAre("Subscribe", "Create", "Unsubscribe", "~Processor", "~Factory",
                                     "~Subscriber"));
}

TEST_F(DataHandlerTest, EndsItsThreadAlsoWhenTheSubscriberRefusesToEnd) {
    ASSERT_EQ(handler_->Start(manager_), 0);
    script_.unsubscribeCode = -5;
    EndHandler();
    EXPECT_TRUE(script_.queue->IsClosed());
    EXPECT_EQ(script_.queue.use_count(), 1);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

}  // namespace
}  // namespace zam_connector::proxy
