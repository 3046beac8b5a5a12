// How the subscriber of changed data tells its observers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "library/zor_ipc/notification/fake_call.h"
#include "library/zor_ipc/notification/scripted_parts.h"
#include "observer_group.h"
#include "zam_connector_testing/recording_observer.h"
#include "zam_data_change_subscriber_proxy.h"

namespace zam_connector::proxy {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::RecordingObserver;
using IntObserver = RecordingObserver<int>;

class Observers : public ::testing::Test {
protected:
    std::atomic<std::uint64_t> counter_{0};
    ObserverGroup<int> group_{counter_};
};

TEST_F(Observers, AreToldInTheOrderOfTheirCookies) {
    std::vector<std::string> told;
    const auto journalling = [&told](const char* name) {
        return std::make_shared<IntObserver>([&told, name](int) { told.emplace_back(name); });
    };
    const auto first = journalling("first");
    const auto second = journalling("second");
    const auto third = journalling("third");
    EXPECT_EQ(group_.Add(third).Value(), 1U);
    EXPECT_EQ(group_.Add(first).Value(), 2U);
    EXPECT_EQ(group_.Add(second).Value(), 3U);
    EXPECT_EQ(group_.Add(first).Value(), 4U);  // once more
    group_.Notify(5);
    EXPECT_THAT(told, ElementsAre("third", "first", "second", "first"));
    EXPECT_THAT(second->Values(), ElementsAre(5));
}

/// The thread's own calls have ended: those of its observers have not.
TEST_F(Observers, MakeTheirOwnCallsOnAThreadThatIsToEnd) {
    std::vector<bool> calls;
    const auto observer = std::make_shared<IntObserver>(
        [&calls](int) { calls.push_back(test::FakeCall().isEntered); });
    group_.Add(observer);
    group_.Add(observer);
    HandlerThreads threads("threads");
    threads.Start(std::make_shared<qor::utils::CancellationToken>(), [&] {
        {
            const test::FakeCall inVain;
            if (inVain.isEntered) {
                inVain.interruptions.wait(0);
            }
        }
        group_.Notify(1);
        calls.push_back(test::FakeCall().isEntered);
    });
    threads.Finish(std::chrono::milliseconds(1));
    EXPECT_THAT(calls, ElementsAre(true, true, false));
}

TEST_F(Observers, LeaveNothingBehindThatAreRemovedWhileTheyAreTold) {
    // A deleter goes when nobody knows of the object any more, its weak owners included.
    auto token = std::make_shared<int>(0);
    const std::weak_ptr<int> known = token;
    SubscriptionCookie cookie;
    auto observer = std::shared_ptr<IntObserver>(
        new IntObserver([&](int) { group_.Remove(cookie); }),
        [token = std::move(token)](const IntObserver* object) { delete object; });
    cookie = group_.Add(observer);
    group_.Notify(1);
    observer.reset();
    EXPECT_TRUE(known.expired());
}

TEST_F(Observers, ThatHaveExpiredAreSkippedAndStay) {
    const auto living = std::make_shared<IntObserver>();
    const SubscriptionCookie expired = group_.Add(std::make_shared<IntObserver>());
    group_.Notify(1);
    EXPECT_FALSE(group_.IsEmpty());
    const SubscriptionCookie cookie = group_.Add(living);
    group_.Notify(2);
    EXPECT_THAT(living->Values(), ElementsAre(2));
    group_.Remove(cookie);
    EXPECT_FALSE(group_.IsEmpty());
    group_.Remove(expired);
    EXPECT_TRUE(group_.IsEmpty());
}

TEST_F(Observers, AreNotToldAfterTheirRemoval) {
    const auto observer = std::make_shared<IntObserver>();
    const auto other = std::make_shared<IntObserver>();
    const SubscriptionCookie cookie = group_.Add(observer);
    group_.Add(other);
    group_.Remove(SubscriptionCookie(99));
    group_.Notify(1);
    group_.Remove(cookie);
    group_.Notify(2);
    EXPECT_THAT(observer->Values(), ElementsAre(1));
    EXPECT_THAT(other->Values(), ElementsAre(1, 2));
}

TEST_F(Observers, AreThoseOfTheBeginningOfTheRound) {
    const auto late = std::make_shared<IntObserver>();
    SubscriptionCookie removed;
    bool first = true;
    // Adds and removes inside the call: no lock is held.
    const auto observer = std::make_shared<IntObserver>([&](int) {
        if (first) {
            first = false;
            group_.Add(late);
            group_.Remove(removed);
        }
    });
    const auto leaving = std::make_shared<IntObserver>();
    group_.Add(observer);
    removed = group_.Add(leaving);
    group_.Notify(1);
    EXPECT_THAT(leaving->Values(), ElementsAre(1));
    EXPECT_THAT(late->Values(), IsEmpty());
    group_.Notify(2);
    EXPECT_THAT(leaving->Values(), ElementsAre(1));
    EXPECT_THAT(late->Values(), ElementsAre(2));
}

TEST_F(Observers, AreHeldOnlyWhileTheyAreTold) {
    auto leaving = std::make_shared<IntObserver>();
    const std::weak_ptr<IntObserver> weak = leaving;
    const auto first = std::make_shared<IntObserver>([&](int) { leaving.reset(); });
    group_.Add(first);
    group_.Add(leaving);
    group_.Notify(1);  // gone before its turn
    EXPECT_TRUE(weak.expired());
}

TEST_F(Observers, ThatAreRemovedAndAddedInARoundAreCountedAtOnce) {
    SubscriptionCookie own;
    bool isEmpty = false;
    const auto observer = std::make_shared<IntObserver>([&](int) {
        group_.Remove(own);
        isEmpty = group_.IsEmpty();
        group_.Remove(own);
        own = group_.Add({});
        EXPECT_FALSE(group_.IsEmpty());
    });
    own = group_.Add(observer);
    group_.Notify(1);
    EXPECT_TRUE(isEmpty);
    group_.Notify(2);
    EXPECT_THAT(observer->Values(), ElementsAre(1));
    group_.Remove(own);
    EXPECT_TRUE(group_.IsEmpty());
}

TEST_F(Observers, ThatWereRemovedBeforeARoundInsideARoundAreNotTold) {
    const auto leaving = std::make_shared<IntObserver>();
    SubscriptionCookie removed;
    bool first = true;
    const auto observer = std::make_shared<IntObserver>([&](int) {
        if (std::exchange(first, false)) {
            group_.Remove(removed);
            group_.Notify(2);
        }
    });
    group_.Add(observer);
    removed = group_.Add(leaving);
    group_.Notify(1);
    EXPECT_THAT(observer->Values(), ElementsAre(1, 2));
    EXPECT_THAT(leaving->Values(), ElementsAre(1)) << "of the round that it was there for";
}

/// Its destructor's calls are an application's as well.
TEST_F(Observers, AreDestroyedWithinTheBoundsOfTheirCalls) {
    class Leaving final : public qor::observer::IChangeObserver<int, int> {
    public:
        Leaving(std::shared_ptr<Leaving>& self, int& isExempt) : self_(self), isExempt_(isExempt) {}
        ~Leaving() override { isExempt_ = test::FakeCall::Bounds()->withoutDefaultTimeout; }
        int OnChange(const int& /*value*/) override {
            self_.reset();
            return 0;
        }

    private:
        std::shared_ptr<Leaving>& self_;
        int& isExempt_;
    };
    int isExempt = -1;
    std::shared_ptr<Leaving> leaving;
    leaving = std::make_shared<Leaving>(leaving, isExempt);
    group_.Add(leaving);
    const LibraryThreadScope thread(nullptr);
    group_.Notify(1);
    EXPECT_EQ(isExempt, 0);
}

TEST_F(Observers, AfterOneThatThrowsAreNotTold) {
    const auto throwing =
        std::make_shared<IntObserver>([](int) { throw std::runtime_error("of the test"); });
    const auto next = std::make_shared<IntObserver>();
    group_.Add(throwing);
    group_.Add(next);
    const SubscriptionCookie last = group_.Add(next);
    EXPECT_THROW(group_.Notify(1), std::runtime_error);
    EXPECT_THAT(next->Values(), IsEmpty());
    group_.Remove(last);
    EXPECT_THROW(group_.Notify(1), std::runtime_error) << "and the round is over";
}

TEST_F(Observers, OfGroupsWithOneCounterHaveDifferentCookies) {
    ObserverGroup<std::string> other(counter_);
    EXPECT_EQ(group_.Add({}).Value(), 1U);
    EXPECT_EQ(other.Add({}).Value(), 2U);
    group_.Remove(SubscriptionCookie(2));
    EXPECT_FALSE(other.IsEmpty());
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 2; ++thread) {
        threads.emplace_back([&] {
            for (int time = 0; time < 500; ++time) {
                group_.Add({});
                other.Add({});
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(group_.Add({}).Value(), 2003U);
}

/// An observer that keeps nothing but that it was told.
template <typename T>
class CountingObserver final : public qor::observer::IChangeObserver<T, int> {
public:
    CountingObserver(std::vector<std::string>& told, std::string name)
        : told_(told), name_(std::move(name)) {}

    int OnChange(const T& /*value*/) override {
        told_.push_back(name_);
        return -1;  // not looked at
    }

private:
    std::vector<std::string>& told_;
    const std::string name_;
};

TEST(DataChangeNotices, ReachTheObserversOfTheirKindOnly) {
    const auto proxy = std::make_shared<ZamDataChangeSubscriberProxy>(
        std::make_shared<test::ScriptedHandler<IZamDataManager>>());
    std::vector<std::string> told;
    SubscriptionCookie cookie;
    const auto observer = [&told](auto* example, const char* name) {
        using Value = std::remove_pointer_t<decltype(example)>;
        return std::make_shared<CountingObserver<Value>>(told, name);
    };
    std::pair<std::uint64_t, ZamPolicy> policy;
    std::pair<std::uint64_t, ZamProductSettings> settings;
    std::pair<std::uint64_t, ZamSubscriptions> subscriptions;
    std::pair<std::uint64_t, ZamUpdatesStatus> updates;
    ZamServerData serverData;
    std::string cert;
    std::uint64_t hash = 0;
    const auto onPolicy = observer(&policy, "policy");
    const auto onSettings = observer(&settings, "settings");
    const auto onSubscriptions = observer(&subscriptions, "subscriptions");
    const auto onUpdates = observer(&updates, "updates");
    const auto onServerData = observer(&serverData, "server data");
    const auto onCert = observer(&cert, "certificate");
    const auto onSynced = observer(&hash, "synced");
    proxy->SubscribeOnPolicyChange(onPolicy, cookie);
    proxy->SubscribeOnProductSettingsChange(onSettings, cookie);
    proxy->SubscribeOnSubscriptionsChange(onSubscriptions, cookie);
    proxy->SubscribeOnZamServerDataChange(onServerData, cookie);
    proxy->SubscribeOnZamReserveCertChange(onCert, cookie);
    proxy->SubscribeOnZamUpdatesStatusChange(onUpdates, cookie);
    proxy->SubscribeOnSettingsSynced(onSynced, cookie);

    proxy->NotifyPolicy(policy);
    EXPECT_THAT(told, ElementsAre("policy"));
    proxy->NotifySettings(settings);
    proxy->NotifySubscriptions(subscriptions);
    proxy->NotifyZamServerData(serverData);
    proxy->NotifyReserveCert(cert);
    proxy->NotifyZamUpdatesStatus(updates);
    proxy->NotifySettingsSynced(hash);
    EXPECT_THAT(told, ElementsAre("policy", "settings", "subscriptions", "server data",
                                  "certificate", "updates", "synced"));
}

}  // namespace
}  // namespace zam_connector::proxy
