// How a subscriber ends, and how it ends the process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "data_handler/data_handler.h"
#include "data_handler/data_subscriber.h"
#include "library/zor_ipc/notification/scripted_parts.h"
#include "library/zor_ipc/notification/scripted_provider.h"
#include "qor/utils/blocking_queue.h"

namespace zam_connector::proxy {
namespace {

using qor::utils::BlockingQueue;
using test::Notifier;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::KilledBySignal;

using BlockingSubscriber = DataSubscriber<int, BlockingQueue>;
using BlockingHandler = DataHandler<int, test::ScriptedManager, BlockingQueue>;

std::unique_ptr<BlockingSubscriber> SubscriberOf(const std::shared_ptr<Notifier<int>>& notifier) {
    return std::make_unique<BlockingSubscriber>(
        std::make_unique<test::ScriptedProvider<int>>(notifier));
}

/// A provider that waits for ever and throws when that is to end.
template <typename Thrown>
class EndlessProvider final : public IDataProvider<int> {
public:
    explicit EndlessProvider(const Thrown& thrown) : thrown_(thrown) {}

    int Register() override { return 0; }
    int GetData(int& /*value*/) override { return never_.Wait() ? 0 : 1; }
    int Unregister() override { throw thrown_; }

private:
    const Thrown thrown_;
    test::Flag never_;
};

TEST(DataSubscriberEnd, CallsNothingWhenItIsNotSubscribed) {
    const auto notifier = std::make_shared<Notifier<int>>();
    SubscriberOf(notifier).reset();
    EXPECT_THAT(notifier->Calls(), IsEmpty());
}

TEST(DataSubscriberEnd, Unsubscribes) {
    const auto notifier = std::make_shared<Notifier<int>>();
    const auto queue = std::make_shared<BlockingQueue<int>>();
    auto subscriber = SubscriberOf(notifier);
    ASSERT_EQ(subscriber->Subscribe(queue), 0);
    subscriber.reset();
    EXPECT_THAT(notifier->Calls(), ElementsAre("Register", "Unregister"));
    EXPECT_TRUE(queue->IsClosed());
    EXPECT_EQ(queue.use_count(), 1);
}

/// The handler thread cannot be started and the provider refuses to undo the registration: the
/// subscriber is left subscribed, and asks the provider once more at its end.
TEST(DataSubscriberEnd, FindsWhatWasKeptAlsoWhenAStartCouldNotBeUndone) {
    const auto notifier = std::make_shared<Notifier<int>>();
    test::PartsScript script;
    auto handler = std::make_unique<BlockingHandler>(
        SubscriberOf(notifier), std::make_unique<test::ScriptedFactory>(script));
    const auto manager = std::make_shared<test::ScriptedManager>();
    std::optional<test::NoMoreThreads> none;
    script.onCreate = [&none] { none.emplace(); };  // the subscriber's thread runs by now
    notifier->SetUnregister(-5);
    EXPECT_THROW(handler->Start(manager), std::system_error);
    none.reset();

    auto object = std::make_shared<int>(1);
    const std::weak_ptr<int> kept = object;
    handler->KeepForThreads(std::move(object));
    EXPECT_FALSE(kept.expired());
    notifier->SetUnregister(0);
    handler.reset();
    EXPECT_THAT(notifier->Calls(), ElementsAre("Register", "Unregister", "Unregister"));
    EXPECT_TRUE(kept.expired());
}

class SubscriberDeathTest : public ::testing::Test {
protected:
    SubscriberDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

void EndWhileTheProviderRefuses() {
    const auto notifier = std::make_shared<Notifier<int>>();
    auto subscriber = SubscriberOf(notifier);
    subscriber->Subscribe(std::make_shared<BlockingQueue<int>>());
    notifier->SetUnregister(-5);
    subscriber.reset();
}

TEST_F(SubscriberDeathTest, EndsTheProcessWhenTheProviderRefusesToEnd) {
    EXPECT_EXIT(EndWhileTheProviderRefuses(), KilledBySignal(SIGABRT), "terminate");
}

template <typename Thrown>
void EndWhileTheProviderThrows(const Thrown& thrown) {
    BlockingSubscriber subscriber(std::make_unique<EndlessProvider<Thrown>>(thrown));
    subscriber.Subscribe(std::make_shared<BlockingQueue<int>>());
}

TEST_F(SubscriberDeathTest, LogsWhatTheProviderThrowsBeforeItEndsTheProcess) {
    constexpr char kRecord[] =
        " E .data_subscriber:[0-9]+ ~DataSubscriber. DataSubscriber: Unsubscribe threw exception";
    EXPECT_EXIT(EndWhileTheProviderThrows(std::runtime_error("of the test")),
                KilledBySignal(SIGABRT), kRecord);
    EXPECT_EXIT(EndWhileTheProviderThrows(5), KilledBySignal(SIGABRT), kRecord);
}

void EndAHandlerWhileTheProviderRefuses() {
    const auto notifier = std::make_shared<Notifier<int>>();
    test::PartsScript script;
    auto handler = std::make_unique<BlockingHandler>(
        SubscriberOf(notifier), std::make_unique<test::ScriptedFactory>(script));
    const auto manager = std::make_shared<test::ScriptedManager>();
    handler->Start(manager);
    notifier->SetUnregister(-5);
    handler.reset();
}

TEST_F(SubscriberDeathTest, EndsTheProcessWithTheHandlerThatOwnsIt) {
    EXPECT_EXIT(EndAHandlerWhileTheProviderRefuses(), KilledBySignal(SIGABRT), "terminate");
}

}  // namespace
}  // namespace zam_connector::proxy
