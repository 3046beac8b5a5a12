// The subscriber of changed data over a scripted pipeline: cookies, starts and stops.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "library/zor_ipc/notification/scripted_parts.h"
#include "qel/exception.h"
#include "support/result_codes.h"
#include "vd/call_bounds.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_data_change_subscriber_proxy.h"

namespace zam_connector::proxy {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogRecord;

using test::kUnspecified;

using ChangeProxy = ZamDataChangeSubscriberProxy;
using ChangeHandler = test::ScriptedHandler<IZamDataManager>;

/// A kind of change as a table row: how a client subscribes, what is logged when that fails, and
/// whether its observers alone keep the pipeline running.
struct Kind {
    const char* operation;
    const char* failure;
    bool keepsRunning;
    int (*subscribe)(ChangeProxy& proxy, SubscriptionCookie& cookie);
    bool (*exists)(const ChangeProxy& proxy);
};

constexpr Kind kKinds[] = {
    {"SubscribeOnPolicyChange",
     "ZamDataChangeSubscriberProxy: SubscribeOnPolicyChange threw exception - ", true,
     [](ChangeProxy& proxy, SubscriptionCookie& cookie) {
         return proxy.SubscribeOnPolicyChange({}, cookie);
     },
     [](const ChangeProxy& proxy) { return proxy.IsPolicySubscriberExist(); }},
    {"SubscribeOnProductSettingsChange",
     "ZamDataChangeSubscriberProxy: SubscribeOnProductSettingsChange threw exception - ", true,
     [](ChangeProxy& proxy, SubscriptionCookie& cookie) {
         return proxy.SubscribeOnProductSettingsChange({}, cookie);
     },
     [](const ChangeProxy& proxy) { return proxy.IsSettingsSubscriberExist(); }},
    {"SubscribeOnSubscriptionsChange",
     "ZamDataChangeSubscriberProxy: SubscribeOnSubscriptionsChange threw exception - ", true,
     [](ChangeProxy& proxy, SubscriptionCookie& cookie) {
         return proxy.SubscribeOnSubscriptionsChange({}, cookie);
     },
     [](const ChangeProxy& proxy) { return proxy.IsSubscriptionsSubscriberExist(); }},
    {"SubscribeOnZamServerDataChange",
     "ZamDataChangeSubscriberProxy: SubscribeOnZamServerDataChange threw exception - ", false,
     [](ChangeProxy& proxy, SubscriptionCookie& cookie) {
         return proxy.SubscribeOnZamServerDataChange({}, cookie);
     },
     [](const ChangeProxy& proxy) { return proxy.IsZamServerDataSubscriberExist(); }},
    {"SubscribeOnZamReserveCertChange",
     "ZamDataChangeSubscriberProxy: SubscribeOnZamReserveCertChange threw exception - ", false,
     [](ChangeProxy& proxy, SubscriptionCookie& cookie) {
         return proxy.SubscribeOnZamReserveCertChange({}, cookie);
     },
     [](const ChangeProxy& proxy) { return proxy.IsReserveCertSubscriberExist(); }},
    {"SubscribeOnZamUpdatesStatusChange",
     "SubscribeOnZamUpdatesStatusChange: SubscribeOnZamReserveCertChange threw exception - ", false,
     [](ChangeProxy& proxy, SubscriptionCookie& cookie) {
         return proxy.SubscribeOnZamUpdatesStatusChange({}, cookie);
     },
     [](const ChangeProxy& proxy) { return proxy.IsZamUpdatesStatusExist(); }},
    {"SubscribeOnSettingsSynced",
     "ZamDataChangeSubscriberProxy: SubscribeOnSettingsSynced threw exception - ", false,
     [](ChangeProxy& proxy, SubscriptionCookie& cookie) {
         return proxy.SubscribeOnSettingsSynced({}, cookie);
     },
     [](const ChangeProxy& proxy) { return proxy.IsSettingsSyncedSubscriberExist(); }},
};

const Kind& kPolicy = kKinds[0];
const Kind& kServerData = kKinds[3];

class DataChangeSubscriber : public ::testing::Test {
protected:
    SubscriptionCookie Subscribe(const Kind& kind) {
        SubscriptionCookie cookie;
        EXPECT_EQ(kind.subscribe(*proxy_, cookie), 0);
        return cookie;
    }

    std::vector<std::string> Calls() const { return handler_->journal.Entries(); }

    void ExpectLogged(const std::string& function, const std::string& text) {
        const std::vector<LogRecord> records = logger_.Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, 4);
        EXPECT_EQ(records[0].file, "zam_data_change_subscriber_proxy");
        EXPECT_EQ(records[0].function, function);
        EXPECT_EQ(records[0].text, text);
        logger_.Clear();
    }

    testing::RecordingLogger logger_;
    std::shared_ptr<ChangeHandler> handler_ = std::make_shared<ChangeHandler>();
    std::shared_ptr<ChangeProxy> proxy_ = std::make_shared<ChangeProxy>(handler_);
};

TEST_F(DataChangeSubscriber, RefusesToBeWithoutAHandler) {
    EXPECT_THROW(ChangeProxy(nullptr), qel::CheckFailedException);
}

TEST_F(DataChangeSubscriber, CallsNothingWhenItIsMadeAndDestroyed) {
    for (const Kind& kind : kKinds) {
        EXPECT_FALSE(kind.exists(*proxy_)) << kind.operation;
    }
    proxy_.reset();
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(DataChangeSubscriber, NumbersTheSubscriptionsOfAllKinds) {
    for (std::uint64_t number = 1; number <= 14; ++number) {
        EXPECT_EQ(Subscribe(kKinds[(number - 1) % 7]).Value(), number);
    }
    EXPECT_EQ(proxy_->Unsubscribe(SubscriptionCookie(14)), 0);
    EXPECT_EQ(Subscribe(kPolicy).Value(), 15U);
    EXPECT_THAT(Calls(), ElementsAre("Start"));
}

TEST_F(DataChangeSubscriber, StartsThePipelineForItselfWithEachKind) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.operation);
        const auto handler = std::make_shared<ChangeHandler>();
        const auto proxy = std::make_shared<ChangeProxy>(handler);
        SubscriptionCookie cookie;
        handler->onCall = [&] { EXPECT_EQ(cookie.Value(), 1U); };  // told before the start
        EXPECT_EQ(kind.subscribe(*proxy, cookie), 0);
        EXPECT_EQ(handler->lastManager.lock(), proxy);
        EXPECT_EQ(kind.subscribe(*proxy, cookie = {}), 0);
        EXPECT_THAT(handler->journal.Entries(), ElementsAre("Start"));
        for (const Kind& other : kKinds) {
            EXPECT_EQ(other.exists(*proxy), &other == &kind) << other.operation;
        }
        handler->onCall = nullptr;
    }
}

TEST_F(DataChangeSubscriber, TriesAFailedStartAgainWithTheNextSubscription) {
    handler_->startCode = -3;
    Subscribe(kPolicy);
    ExpectLogged("CheckStatesAndStartTaskHandler",
                 "ZamDataChangeSubscriberProxy: Start terminated with error -3");
    EXPECT_TRUE(proxy_->IsPolicySubscriberExist());
    EXPECT_EQ(proxy_->Unsubscribe(SubscriptionCookie(1)), 0);  // there is nothing to stop
    handler_->startCode = 1;
    Subscribe(kServerData);
    Subscribe(kPolicy);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Start"));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(DataChangeSubscriber, StopsThePipelineWhenTheLastDecidingObserverLeaves) {
    std::vector<SubscriptionCookie> deciding;
    for (const Kind& kind : kKinds) {
        const SubscriptionCookie cookie = Subscribe(kind);
        if (kind.keepsRunning) {
            deciding.push_back(cookie);
        }
    }
    ASSERT_EQ(deciding.size(), 3U);
    EXPECT_EQ(proxy_->Unsubscribe(deciding[1]), 0);
    EXPECT_EQ(proxy_->Unsubscribe(deciding[0]), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start"));
    EXPECT_EQ(proxy_->Unsubscribe(deciding[2]), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
    for (const Kind& kind : kKinds) {
        EXPECT_EQ(kind.exists(*proxy_), !kind.keepsRunning) << kind.operation;
    }
    EXPECT_EQ(proxy_->Unsubscribe(deciding[2]), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
    Subscribe(kServerData);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop", "Start"));
}

TEST_F(DataChangeSubscriber, KeepsRunningForOneObserverOfADecidingKind) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.operation);
        const auto handler = std::make_shared<ChangeHandler>();
        const auto proxy = std::make_shared<ChangeProxy>(handler);
        SubscriptionCookie cookie;
        EXPECT_EQ(kind.subscribe(*proxy, cookie), 0);
        EXPECT_EQ(proxy->Unsubscribe(SubscriptionCookie(99)), 0);  // not known
        EXPECT_EQ(handler->journal.Entries().size(), kind.keepsRunning ? 1U : 2U);
        EXPECT_TRUE(kind.exists(*proxy));
    }
}

TEST_F(DataChangeSubscriber, RemovesTheObserverOfEachKind) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.operation);
        const SubscriptionCookie first = Subscribe(kind);
        const SubscriptionCookie second = Subscribe(kind);
        EXPECT_EQ(proxy_->Unsubscribe(first), 0);
        EXPECT_EQ(proxy_->Unsubscribe(first), 0);
        EXPECT_TRUE(kind.exists(*proxy_));
        EXPECT_EQ(proxy_->Unsubscribe(second), 0);
        EXPECT_FALSE(kind.exists(*proxy_));
    }
}

TEST_F(DataChangeSubscriber, TakesAPipelineForStoppedWhateverItsStopReturns) {
    handler_->stopCode = -5;
    EXPECT_EQ(proxy_->Unsubscribe(Subscribe(kPolicy)), 0);
    EXPECT_EQ(proxy_->Unsubscribe(SubscriptionCookie(1)), 0);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
    Subscribe(kPolicy);
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop", "Start"));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(DataChangeSubscriber, LogsWhatAStartThrowsWithTheTextOfItsOperation) {
    handler_->onCall = [] { throw std::runtime_error("of the test"); };
    std::uint64_t number = 0;
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.operation);
        SubscriptionCookie cookie;
        EXPECT_EQ(kind.subscribe(*proxy_, cookie), kUnspecified);
        ExpectLogged(kind.operation, std::string(kind.failure) + "of the test");
        EXPECT_EQ(cookie.Value(), ++number);
        EXPECT_TRUE(kind.exists(*proxy_));
    }
    EXPECT_EQ(Calls().size(), 7U);  // each tried again
}

TEST_F(DataChangeSubscriber, LogsWhatAStopThrows) {
    const SubscriptionCookie cookie = Subscribe(kPolicy);
    handler_->onCall = [] { throw std::runtime_error("of the test"); };
    EXPECT_EQ(proxy_->Unsubscribe(cookie), kUnspecified);
    ExpectLogged("Unsubscribe",
                 "ZamDataChangeSubscriberProxy: Unsubscribe threw exception - of the test");
    EXPECT_FALSE(proxy_->IsPolicySubscriberExist());
    handler_->onCall = nullptr;
    EXPECT_EQ(proxy_->Unsubscribe(cookie), 0);  // it ran still
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop", "Stop"));
}

TEST_F(DataChangeSubscriber, StopsThePipelineWhenItIsDestroyed) {
    Subscribe(kServerData);
    handler_->stopCode = -5;
    proxy_.reset();
    EXPECT_THAT(Calls(), ElementsAre("Start", "Stop"));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(DataChangeSubscriber, LogsWhatTheStopThrowsWhenItIsDestroyed) {
    Subscribe(kPolicy);
    handler_->onCall = [] { throw std::runtime_error("of the test"); };
    proxy_.reset();
    ExpectLogged("~ZamDataChangeSubscriberProxy",
                 "ZamDataChangeSubscriberProxy: Stop threw exception: of the test");
}

TEST_F(DataChangeSubscriber, HasThePipelineKeepObjects) {
    const auto object = std::make_shared<int>(1);
    proxy_->KeepForThreads(object);
    EXPECT_EQ(handler_->kept, object);
}

/// The thread's last status is that of the operation, whatever came before it.
TEST_F(DataChangeSubscriber, TellsWhatTheTransportCameTo) {
    std::int32_t& last = *VdZorTransport_LastStatus();
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.operation);
        handler_->startCode = -3;
        handler_->onCall = [&] { last = 5; };
        Subscribe(kind);
        EXPECT_EQ(last, 5) << "a start that failed says why";
        handler_->startCode = 0;
        handler_->onCall = nullptr;
        Subscribe(kind);
        EXPECT_EQ(last, 0);
        last = 4;
        Subscribe(kind);  // starts nothing
        EXPECT_EQ(last, 0);
        last = 4;
        EXPECT_EQ(proxy_->Unsubscribe(SubscriptionCookie(99)), 0);
        EXPECT_EQ(last, 0);
        handler_ = std::make_shared<ChangeHandler>();
        proxy_ = std::make_shared<ChangeProxy>(handler_);
    }
}

TEST_F(DataChangeSubscriber, TellsNothingOfTheTransportWhenSomethingIsThrown) {
    std::int32_t& last = *VdZorTransport_LastStatus();
    const SubscriptionCookie cookie = Subscribe(kServerData);
    handler_->onCall = [&] {
        last = 5;
        throw std::runtime_error("of the test");
    };
    EXPECT_EQ(proxy_->Unsubscribe(cookie), kUnspecified);
    EXPECT_EQ(last, 0);
    handler_->onCall = nullptr;
}

}  // namespace
}  // namespace zam_connector::proxy
