// The subscriber of connection states over a scripted pipeline.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "library/zor_ipc/notification/scripted_parts.h"
#include "qel/exception.h"
#include "support/result_codes.h"
#include "vd/call_bounds.h"
#include "zam_conn_state_subscriber_proxy.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_connector_testing/recording_observer.h"

namespace zam_connector::proxy {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogRecord;

using test::kUnspecified;

using StateProxy = ZamConnStateSubscriberProxy;
using StateHandler = test::ScriptedHandler<IZamConnStateManager>;
using StateObserver = testing::RecordingObserver<ZamConnectorState>;

class ConnStateSubscriber : public ::testing::Test {
protected:
    /// The code of a subscription and its cookie's number.
    std::pair<int, std::uint64_t> Subscribe() {
        SubscriptionCookie cookie;
        const int result = proxy_->SubscribeOnStateChange(observer_, cookie);
        return {result, cookie.Value()};
    }

    int Unsubscribe(std::uint64_t number) {
        return proxy_->Unsubscribe(SubscriptionCookie(number));
    }

    std::vector<std::string> Calls() const { return handler_->journal.Entries(); }

    void ExpectLogged(const char* function, const char* text) {
        const std::vector<LogRecord> records = logger_.Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, 4);
        EXPECT_EQ(records[0].file, "zam_conn_state_subscriber_proxy");
        EXPECT_EQ(records[0].function, function);
        EXPECT_EQ(records[0].text, text);
        logger_.Clear();
    }

    /// Whether a notice reaches the observer.
    bool IsTold() {
        const std::size_t before = observer_->Count();
        proxy_->SetZamConnectorState(ZamConnectorState::Connected);
        return observer_->Count() > before;
    }

    testing::RecordingLogger logger_;
    std::shared_ptr<StateObserver> observer_ = std::make_shared<StateObserver>();
    std::shared_ptr<StateHandler> handler_ = std::make_shared<StateHandler>();
    std::shared_ptr<StateProxy> proxy_ = std::make_shared<StateProxy>(handler_);
};

constexpr std::pair<int, std::uint64_t> Done(std::uint64_t cookie) {
    return {0, cookie};
}

TEST_F(ConnStateSubscriber, RefusesToBeWithoutAHandler) {
    try {
        const StateProxy proxy(nullptr);
        ADD_FAILURE() << "nothing thrown";
    } catch (const qel::CheckFailedException& exception) {
        EXPECT_EQ(exception.Text(), u"data handler ptr is null");
    }
}

TEST_F(ConnStateSubscriber, CallsNothingWhenItIsMadeAndDestroyed) {
    proxy_.reset();
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ConnStateSubscriber, StartsThePipelineForItselfWithTheFirstSubscription) {
    EXPECT_EQ(Subscribe(), Done(1));
    EXPECT_EQ(handler_->lastManager.lock(), proxy_);
    EXPECT_EQ(Subscribe(), Done(2));
    EXPECT_THAT(Calls(), ElementsAre("Start"));
}

TEST_F(ConnStateSubscriber, StopsThePipelineWithTheLastSubscription) {
    Subscribe();
    Subscribe();
    EXPECT_EQ(Unsubscribe(1), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start"));
    EXPECT_EQ(Unsubscribe(1), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start"));
    EXPECT_EQ(Unsubscribe(2), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
    EXPECT_EQ(Unsubscribe(2), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
    EXPECT_EQ(Subscribe(), Done(3));
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop", "Start"));
}

TEST_F(ConnStateSubscriber, StopsNothingForACookieItDoesNotKnow) {
    EXPECT_EQ(Unsubscribe(1), 0);
    EXPECT_THAT(Calls(), IsEmpty());
    Subscribe();
    EXPECT_EQ(Unsubscribe(99), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start"));
}

TEST_F(ConnStateSubscriber, HandsOnTheCodeOfTheStart) {
    handler_->startCode = 1;
    EXPECT_EQ(Subscribe(), std::make_pair(1, std::uint64_t{1}));
}

TEST_F(ConnStateSubscriber, TriesAFailedStartAgainOnlyAfterTheLastSubscription) {
    handler_->startCode = -3;
    EXPECT_EQ(Subscribe(), std::make_pair(-3, std::uint64_t{1}));
    EXPECT_TRUE(IsTold());  // subscribed all the same
    EXPECT_EQ(Subscribe(), Done(2));
    EXPECT_THAT(Calls(), ElementsAre("Start"));
    EXPECT_EQ(Unsubscribe(1), 0);
    EXPECT_EQ(Unsubscribe(2), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
    EXPECT_EQ(Subscribe(), std::make_pair(-3, std::uint64_t{3}));
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop", "Start"));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(ConnStateSubscriber, TakesThePipelineForStoppedWhateverItsStopReturns) {
    handler_->stopCode = -5;
    Subscribe();
    EXPECT_EQ(Unsubscribe(1), 0);
    EXPECT_EQ(Unsubscribe(1), 0);
    EXPECT_EQ(Subscribe(), Done(2));
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop", "Start"));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(ConnStateSubscriber, LogsWhatAStartThrows) {
    handler_->onCall = [] { throw std::runtime_error("of the test"); };
    EXPECT_EQ(Subscribe(), std::make_pair(kUnspecified, std::uint64_t{1}));
    ExpectLogged("SubscribeOnStateChange",
                 "ZamConnStateSubscriberProxy: SubscribeOnStateChange threw exception - of the "
                 "test");
    EXPECT_TRUE(IsTold());
    EXPECT_EQ(Subscribe(), Done(2));  // it is taken for started
    EXPECT_THAT(Calls(), ElementsAre("Start"));
    handler_->onCall = nullptr;
}

TEST_F(ConnStateSubscriber, LogsWhatAStopThrows) {
    Subscribe();
    handler_->onCall = [] { throw std::runtime_error("of the test"); };
    EXPECT_EQ(Unsubscribe(1), kUnspecified);
    ExpectLogged("Unsubscribe",
                 "ZamConnStateSubscriberProxy: Unsubscribe threw exception - of the test");
    EXPECT_FALSE(IsTold());
    EXPECT_EQ(Unsubscribe(1), 0);  // it is taken for stopped
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
}

TEST_F(ConnStateSubscriber, StopsThePipelineWhenItIsDestroyed) {
    Subscribe();
    handler_->stopCode = -5;
    proxy_.reset();
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(ConnStateSubscriber, StopsNothingAgainWhenItIsDestroyed) {
    Subscribe();
    Unsubscribe(1);
    proxy_.reset();
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
}

TEST_F(ConnStateSubscriber, LogsWhatTheStopThrowsWhenItIsDestroyed) {
    Subscribe();
    handler_->onCall = [] { throw std::runtime_error("of the test"); };
    proxy_.reset();
    ExpectLogged("~ZamConnStateSubscriberProxy",
                 "ZamConnStateSubscriberProxy: Stop threw exception: of the test");
}

TEST_F(ConnStateSubscriber, TellsAllInTheOrderOfTheirCookies) {
    std::vector<int> told;
    std::vector<std::shared_ptr<StateObserver>> observers;
    for (const int name : {1, 2, 3}) {
        observers.push_back(std::make_shared<StateObserver>(
            [&told, name](const ZamConnectorState&) { told.push_back(name); }));
        SubscriptionCookie cookie;
        ASSERT_EQ(proxy_->SubscribeOnStateChange(observers.back(), cookie), 0);
    }
    observers[1].reset();  // skipped, and not taken for removed
    proxy_->SetZamConnectorState(ZamConnectorState::Refused);
    proxy_->SetZamConnectorState(ZamConnectorState::Refused);
    EXPECT_THAT(told, ElementsAre(1, 3, 1, 3));
    EXPECT_THAT(observers[0]->Values(),
                ElementsAre(ZamConnectorState::Refused, ZamConnectorState::Refused));
    EXPECT_EQ(Unsubscribe(1), 0);
    EXPECT_EQ(Unsubscribe(3), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start"));
    EXPECT_EQ(Unsubscribe(2), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
}

TEST_F(ConnStateSubscriber, TakesAnObserverThatIsGone) {
    SubscriptionCookie cookie;
    EXPECT_EQ(proxy_->SubscribeOnStateChange({}, cookie), 0);
    EXPECT_EQ(cookie.Value(), 1U);
    EXPECT_THAT(Calls(), ElementsAre("Start"));
    proxy_->SetZamConnectorState(ZamConnectorState::Connected);
}

TEST_F(ConnStateSubscriber, HasThePipelineKeepObjects) {
    const auto object = std::make_shared<int>(1);
    proxy_->KeepForThreads(object);
    EXPECT_EQ(handler_->kept, object);
}

/// The thread's last status is that of the operation, whatever came before it.
TEST_F(ConnStateSubscriber, TellsWhatTheTransportCameTo) {
    std::int32_t& last = *VdZorTransport_LastStatus();
    last = 4;
    EXPECT_EQ(Unsubscribe(99), 0);  // asks for nothing
    EXPECT_EQ(last, 0);
    handler_->startCode = -3;
    handler_->onCall = [&] { last = 5; };
    EXPECT_EQ(Subscribe().first, -3);
    EXPECT_EQ(last, 5);
    EXPECT_EQ(Subscribe().first, 0);  // starts nothing
    EXPECT_EQ(last, 0);
}

TEST_F(ConnStateSubscriber, TellsNothingOfTheTransportWhenSomethingIsThrown) {
    std::int32_t& last = *VdZorTransport_LastStatus();
    handler_->onCall = [&] {
        last = 5;
        throw std::runtime_error("of the test");
    };
    EXPECT_EQ(Subscribe().first, kUnspecified);
    EXPECT_EQ(last, 0);
    EXPECT_EQ(Unsubscribe(1), kUnspecified);
    EXPECT_EQ(last, 0);
    handler_->onCall = nullptr;
}

}  // namespace
}  // namespace zam_connector::proxy
