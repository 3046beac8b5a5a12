#include "data_handler/data_subscriber.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "library/zor_ipc/notification/fake_call.h"
#include "library/zor_ipc/notification/refused_at.h"
#include "library/zor_ipc/notification/scripted_parts.h"
#include "library/zor_ipc/notification/scripted_provider.h"
#include "support/result_codes.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::proxy {
namespace {

using test::CountingQueue;
using test::Flag;
using test::Notifier;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogRecord;

constexpr int kAlreadyDone = static_cast<int>(0x80000067U);
using test::kUnspecified;

using CountingSubscriber = DataSubscriber<int, CountingQueue>;
using Queue = CountingQueue<int>;

/// A provider whose waiting call is a function of the test.
class FunctionProvider final : public IDataProvider<int> {
public:
    explicit FunctionProvider(std::function<int(int&)> getData) : getData_(std::move(getData)) {}

    int Register() override { return 0; }
    int GetData(int& value) override { return getData_(value); }
    int Unregister() override {
        unregistered_.Raise();
        return 0;
    }

    Flag& Unregistered() { return unregistered_; }

private:
    const std::function<int(int&)> getData_;
    Flag unregistered_;
};

class DataSubscriberTest : public ::testing::Test {
protected:
    std::list<int> Popped() {
        std::list<int> values;
        queue_->PopAll(values);
        return values;
    }

    testing::RecordingLogger logger_;
    std::shared_ptr<Notifier<int>> notifier_ = std::make_shared<Notifier<int>>();
    std::shared_ptr<Queue> queue_ = std::make_shared<Queue>();
    CountingSubscriber subscriber_{std::make_unique<test::ScriptedProvider<int>>(notifier_)};
};

TEST(DataSubscriber, RefusesToBeWithoutAProvider) {
    EXPECT_EQ(test::RefusedAt([] { CountingSubscriber(nullptr); }), "data_subscriber:23");
}

TEST_F(DataSubscriberTest, CallsNothingWhenItIsMade) {
    EXPECT_THAT(notifier_->Calls(), IsEmpty());
    EXPECT_EQ(notifier_->Waits(), 0);
}

TEST_F(DataSubscriberTest, PushesWhatTheProviderGives) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->Tell(4);
    EXPECT_THAT(Popped(), ElementsAre(4));
    notifier_->Tell(0);
    EXPECT_THAT(Popped(), ElementsAre(0));
    EXPECT_THAT(notifier_->Calls(), ElementsAre("Register"));
}

TEST_F(DataSubscriberTest, SubscribesOnce) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    EXPECT_EQ(subscriber_.Subscribe(queue_), kAlreadyDone);
    EXPECT_THAT(notifier_->Calls(), ElementsAre("Register"));
}

TEST_F(DataSubscriberTest, UnsubscribesOnce) {
    EXPECT_EQ(subscriber_.Unsubscribe(), kAlreadyDone);
    EXPECT_THAT(notifier_->Calls(), IsEmpty());
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    EXPECT_EQ(subscriber_.Unsubscribe(), 0);
    EXPECT_EQ(subscriber_.Unsubscribe(), kAlreadyDone);
    EXPECT_THAT(notifier_->Calls(), ElementsAre("Register", "Unregister"));
}

TEST_F(DataSubscriberTest, HandsOnARefusedRegistration) {
    notifier_->SetRegister(-7);
    EXPECT_EQ(subscriber_.Subscribe(queue_), -7);
    EXPECT_EQ(notifier_->Waits(), 0);
    EXPECT_FALSE(queue_->IsClosed());
    EXPECT_EQ(subscriber_.Unsubscribe(), kAlreadyDone);
    EXPECT_THAT(notifier_->Calls(), ElementsAre("Register"));
    notifier_->SetRegister(0);
    EXPECT_EQ(subscriber_.Subscribe(queue_), 0);
}

TEST_F(DataSubscriberTest, TakesAPositiveCodeForSuccess) {
    notifier_->SetRegister(1);
    EXPECT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->SetUnregister(1);
    EXPECT_EQ(subscriber_.Unsubscribe(), 0);
    EXPECT_TRUE(queue_->IsClosed());
}

TEST_F(DataSubscriberTest, HasStoppedWaitingWhenItIsUnsubscribed) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->WaitUntilIdle();
    EXPECT_FALSE(queue_->IsClosed());
    EXPECT_EQ(subscriber_.Unsubscribe(), 0);
    // The wait that the unregistration ended was the last: the thread was told first.
    EXPECT_EQ(notifier_->Waits(), 1);
    EXPECT_TRUE(queue_->IsClosed());
    EXPECT_EQ(queue_->closes, 1);
    EXPECT_EQ(queue_->pushes, 0);
}

TEST_F(DataSubscriberTest, ClosesNoQueueThatIsClosed) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    queue_->Close();
    EXPECT_EQ(subscriber_.Unsubscribe(), 0);
    EXPECT_EQ(queue_->closes, 1);
}

TEST_F(DataSubscriberTest, OwnsTheQueueWhileItIsSubscribed) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    const std::weak_ptr<Queue> queue = queue_;
    queue_.reset();
    EXPECT_FALSE(queue.expired());
    EXPECT_EQ(subscriber_.Unsubscribe(), 0);
    EXPECT_TRUE(queue.expired());
}

TEST_F(DataSubscriberTest, FeedsTheQueueOfItsPresentRun) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    ASSERT_EQ(subscriber_.Unsubscribe(), 0);
    const std::shared_ptr<Queue> first = queue_;
    queue_ = std::make_shared<Queue>();
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->Tell(3);
    EXPECT_THAT(Popped(), ElementsAre(3));
    EXPECT_EQ(first->pushes, 0);
}

TEST_F(DataSubscriberTest, StaysSubscribedWhenTheProviderRefusesToEnd) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->WaitUntilIdle();
    notifier_->SetUnregister(-5);
    EXPECT_EQ(subscriber_.Unsubscribe(), -5);
    EXPECT_EQ(subscriber_.Subscribe(queue_), kAlreadyDone);
    notifier_->SetUnregister(0);
    EXPECT_EQ(subscriber_.Unsubscribe(), 0);
    EXPECT_THAT(notifier_->Calls(), ElementsAre("Register", "Unregister", "Unregister"));
}

/// Waits under its thread's bounds until somebody ends the call; the farewell is reported as done,
/// with this status of the transport.
class DeafProvider final : public IDataProvider<int> {
public:
    DeafProvider(Flag& waits, int farewellStatus)
        : waits_(waits), farewellStatus_(farewellStatus) {}

    int Register() override { return 0; }
    int GetData(int& /*value*/) override {
        const test::FakeCall call;
        if (call.isEntered) {
            waits_.Raise();
            call.interruptions.wait(0);
        }
        return kUnspecified;
    }
    int Unregister() override {
        *VdZorTransport_LastStatus() = farewellStatus_;
        return 0;
    }

private:
    Flag& waits_;
    const int farewellStatus_;
};

class DeafDataSubscriber : public DataSubscriberTest {
protected:
    void EndTheWait(int farewellStatus) {
        Flag waits;
        CountingSubscriber subscriber(std::make_unique<DeafProvider>(waits, farewellStatus));
        ASSERT_EQ(subscriber.Subscribe(queue_), 0);
        ASSERT_TRUE(waits.Wait());
        EXPECT_EQ(subscriber.Unsubscribe(), 0);
        EXPECT_TRUE(queue_->IsClosed());
        EXPECT_EQ(subscriber.Subscribe(std::make_shared<Queue>()), 0) << "and can begin anew";
    }
};

TEST_F(DeafDataSubscriber, EndsTheWaitThatTheServiceWasNotToldOf) {
    EndTheWait(4);
}

TEST_F(DeafDataSubscriber, EndsTheWaitThatTheServiceDoesNotEndThoughItWasTold) {
    EndTheWait(0);
}

TEST_F(DataSubscriberTest, PushesTheNoticeOfTheWaitThatItsEndFinds) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->WaitUntilIdle();
    notifier_->SetUnregister(-5);
    ASSERT_EQ(subscriber_.Unsubscribe(), -5);
    notifier_->Tell(8);
    EXPECT_THAT(Popped(), ElementsAre(8));
    EXPECT_THAT(Popped(), IsEmpty());
    EXPECT_TRUE(queue_->IsClosed());
    EXPECT_EQ(notifier_->Waits(), 1);
    notifier_->SetUnregister(0);
}

TEST_F(DataSubscriberTest, LogsAFailureAndTriesAgainAtOnce) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->Give({-5, 1});
    notifier_->Give({kUnspecified, 2});
    notifier_->Give({0, 3});
    EXPECT_THAT(Popped(), ElementsAre(3));
    ASSERT_EQ(subscriber_.Unsubscribe(), 0);
    const std::vector<LogRecord> records = logger_.Records();
    ASSERT_EQ(records.size(), 2U);
    for (const LogRecord& record : records) {
        EXPECT_EQ(record.level, 3);
        EXPECT_EQ(record.file, "data_subscriber");
        EXPECT_GT(record.line, 0);
        EXPECT_EQ(record.function, "RunGetData");
    }
    EXPECT_EQ(records[0].text, "DataSubscriber: GetData terminated with error -5");
    EXPECT_EQ(records[1].text, "DataSubscriber: GetData terminated with error -2147483573");
    EXPECT_EQ(queue_->pushes, 1);
}

TEST_F(DataSubscriberTest, PushesNothingForAPositiveCode) {
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->Give({1, 7});
    notifier_->Give({0x7FFFFFFF, 7});
    notifier_->Give({0, 8});
    EXPECT_THAT(Popped(), ElementsAre(8));
    EXPECT_EQ(queue_->pushes, 1);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(DataSubscriberTest, PushesAgainWhatThereWasNoMemoryFor) {
    queue_->pushesWithoutMemory = 2;
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->Tell(5);
    EXPECT_THAT(Popped(), ElementsAre(5));
    EXPECT_EQ(queue_->pushes, 3);
}

TEST_F(DataSubscriberTest, GivesUpWithoutMemoryWhenItIsUnsubscribed) {
    queue_->pushesWithoutMemory = 1'000'000'000;
    ASSERT_EQ(subscriber_.Subscribe(queue_), 0);
    notifier_->Tell(5);
    while (queue_->pushes == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(subscriber_.Unsubscribe(), 0);
    EXPECT_TRUE(queue_->IsClosed());
}

TEST_F(DataSubscriberTest, UndoesTheRegistrationWhenThereIsNoThread) {
    {
        const test::NoMoreThreads none;
        EXPECT_THROW(subscriber_.Subscribe(queue_), std::system_error);
    }
    EXPECT_THAT(notifier_->Calls(), ElementsAre("Register", "Unregister"));
    EXPECT_EQ(subscriber_.Unsubscribe(), kAlreadyDone);
    EXPECT_EQ(subscriber_.Subscribe(queue_), 0);
}

/// Who made the queue may have put into its hands what the provider needs.
TEST_F(DataSubscriberTest, HoldsItsQueueUntilTheProviderLetsItGo) {
    const std::weak_ptr<Queue> queue = queue_;
    ASSERT_EQ(subscriber_.Subscribe(std::exchange(queue_, nullptr)), 0);
    notifier_->SetUnregister(-5);
    EXPECT_EQ(subscriber_.Unsubscribe(), -5);
    notifier_->Give({1, 0});  // nothing to tell: the thread sees the cancel and ends
    while (queue.use_count() > 1) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(queue.expired());
    notifier_->SetUnregister(0);
    EXPECT_EQ(subscriber_.Unsubscribe(), 0);
    EXPECT_TRUE(queue.expired());
}

TEST_F(DataSubscriberTest, GivesEachWaitAZero) {
    std::vector<int> seen;
    Flag* unregistered = nullptr;
    auto provider = std::make_unique<FunctionProvider>([&](int& value) {
        seen.push_back(value);
        value = 77;
        if (seen.size() < 3) {
            return seen.size() == 1 ? -1 : 1;
        }
        queue_->Push(0);
        unregistered->Wait();
        return 1;
    });
    unregistered = &provider->Unregistered();
    CountingSubscriber subscriber(std::move(provider));
    ASSERT_EQ(subscriber.Subscribe(queue_), 0);
    Popped();
    ASSERT_EQ(subscriber.Unsubscribe(), 0);
    EXPECT_THAT(seen, ElementsAre(0, 0, 0));
}

TEST_F(DataSubscriberTest, TakesWhatTheProviderThrowsForAFailure) {
    int calls = 0;
    Flag* unregistered = nullptr;
    auto provider = std::make_unique<FunctionProvider>([&](int& value) -> int {
        switch (++calls) {
            case 1:
                throw std::runtime_error("of the test");
            case 2:
                throw 5;
            case 3:
                value = 6;
                return 0;
        }
        unregistered->Wait();
        return 1;
    });
    unregistered = &provider->Unregistered();
    CountingSubscriber subscriber(std::move(provider));
    ASSERT_EQ(subscriber.Subscribe(queue_), 0);
    EXPECT_THAT(Popped(), ElementsAre(6));
    ASSERT_EQ(subscriber.Unsubscribe(), 0);
    const std::vector<LogRecord> records = logger_.Records();
    ASSERT_EQ(records.size(), 2U);
    for (const LogRecord& record : records) {
        EXPECT_EQ(record.level, 3);
        EXPECT_EQ(record.file, "data_subscriber");
        EXPECT_EQ(record.function, "RunGetData");
        EXPECT_EQ(record.text, "DataSubscriber: GetData terminated with error -2147483573");
    }
}

}  // namespace
}  // namespace zam_connector::proxy
