// Every sequence of a few steps, up to a length, for both subscriber proxies, against a model of
// what they promise.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "library/zor_ipc/notification/pipelines.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::test {
namespace {

constexpr int kRefused = -7;

enum class Step {
    Subscribe,           ///< an observer that keeps the pipeline running
    SubscribeOther,      ///< one that does not; for states, one more of the same
    Unsubscribe,         ///< the oldest subscription
    UnsubscribeUnknown,  ///< a cookie that nobody has
    ToggleRegister,      ///< the service refuses, or no longer refuses, registrations
    ToggleUnregister,    ///< the same for their ends
    Notice,              ///< is told to whoever listens
    Failure,             ///< the waiting call fails, as when the service dies
    UnsubscribeInside,   ///< a notice in whose call the oldest subscription is removed
    SubscribeInside,     ///< a notice in whose call an observer is added
};
constexpr int kSteps = 10;

/// A pipeline under test. `Keeper` is the observer of the kind that keeps it running.
template <typename Pipeline>
struct Traits;

template <>
struct Traits<DataPipeline> {
    using Keeper = PolicyObserver;
    using Change = PolicyChange;
    static constexpr bool kOthersKeepRunning = false;
    static constexpr bool kFailedStartIsReturned = false;

    static int Subscribe(DataPipeline& pipeline, std::shared_ptr<Keeper> observer,
                         SubscriptionCookie& cookie) {
        return pipeline.proxy->SubscribeOnPolicyChange(std::move(observer), cookie);
    }
    static int SubscribeOther(DataPipeline& pipeline, std::shared_ptr<Keeper>,
                              SubscriptionCookie& cookie) {
        return pipeline.proxy->SubscribeOnZamServerDataChange(
            std::weak_ptr<IZamServerDataObserver>(), cookie);
    }
    static void Tell(DataPipeline& pipeline) { pipeline.notifier->Tell(kPolicyKind); }
};

template <>
struct Traits<StatePipeline> {
    using Keeper = StateObserver;
    using Change = ZamConnectorState;
    static constexpr bool kOthersKeepRunning = true;
    static constexpr bool kFailedStartIsReturned = true;

    static int Subscribe(StatePipeline& pipeline, std::shared_ptr<Keeper> observer,
                         SubscriptionCookie& cookie) {
        return pipeline.proxy->SubscribeOnStateChange(std::move(observer), cookie);
    }
    static int SubscribeOther(StatePipeline& pipeline, std::shared_ptr<Keeper> observer,
                              SubscriptionCookie& cookie) {
        return Subscribe(pipeline, std::move(observer), cookie);
    }
    static void Tell(StatePipeline& pipeline) { pipeline.notifier->Tell(1); }
};

/// What the proxies promise. `started` is the proxy's own idea; `running` that of its pipeline.
struct Model {
    bool othersKeepRunning;
    bool failedStartIsReturned;
    bool refusesRegister = false;
    bool refusesUnregister = false;
    bool started = false;
    bool running = false;
    bool cancelled = false;  ///< asked to stop, but the service refused that
    bool waiting = false;    ///< a call waits in the service
    std::vector<std::string> calls;

    int Start() {
        if (running) {
            return 0;
        }
        calls.emplace_back("Register");
        if (refusesRegister) {
            return kRefused;
        }
        running = true;
        cancelled = false;
        waiting = true;
        return 0;
    }

    void Stop() {
        if (!running) {
            return;
        }
        calls.emplace_back("Unregister");
        cancelled = true;
        if (!refusesUnregister) {
            running = false;
            waiting = false;
        }
    }

    int Subscribed() {
        if (started) {
            return 0;
        }
        const int result = Start();
        started = result >= 0 || failedStartIsReturned;
        return failedStartIsReturned ? result : 0;
    }

    void Unsubscribed(bool keepersLeft) {
        if (started && !keepersLeft) {
            Stop();
            started = false;
        }
    }

    /// Whether a notice reaches the observers; the waiting call takes it in any case.
    bool Notice() {
        const bool reached = waiting;
        waiting = waiting && !cancelled;
        return reached;
    }
};

template <typename Pipeline>
class Player {
public:
    using T = Traits<Pipeline>;

    Player() = default;

    ~Player() {
        model_.refusesUnregister = false;
        pipeline_.notifier->SetUnregister(0);
        ThreadsEnd end(*pipeline_.proxy);
        pipeline_.proxy.reset();
        EXPECT_TRUE(end.Wait());  // the last owner may be a call that is just coming to its end
        model_.Stop();
        EXPECT_EQ(pipeline_.notifier->Calls(), model_.calls);
        for (const Subscription& subscription : all_) {
            EXPECT_EQ(subscription.observer->Count(), subscription.expected);
        }
    }

    void Play(Step step) {
        Take(step);
        AwaitTheWaitingCall();
    }

private:
    /// What a step finds must not depend on how far the subscriber thread has come: where the model
    /// has a call wait in the service, it waits there.
    void AwaitTheWaitingCall() {
        if (model_.waiting) {
            pipeline_.notifier->WaitUntilIdle();
        }
    }

    void Take(Step step) {
        switch (step) {
            case Step::Subscribe:
                return Subscribe(true);
            case Step::SubscribeOther:
                return Subscribe(T::kOthersKeepRunning);
            case Step::Unsubscribe:
                return UnsubscribeOldest();
            case Step::UnsubscribeUnknown:
                EXPECT_EQ(pipeline_.proxy->Unsubscribe(SubscriptionCookie(1000)), 0);
                return model_.Unsubscribed(HasKeepers());
            case Step::ToggleRegister:
                model_.refusesRegister = !model_.refusesRegister;
                return pipeline_.notifier->SetRegister(model_.refusesRegister ? kRefused : 0);
            case Step::ToggleUnregister:
                model_.refusesUnregister = !model_.refusesUnregister;
                return pipeline_.notifier->SetUnregister(model_.refusesUnregister ? kRefused : 0);
            case Step::Notice:
                return Notice({});
            case Step::Failure:
                return Failure();
            case Step::UnsubscribeInside:
                return Notice([this] { UnsubscribeOldest(); });
            case Step::SubscribeInside:
                return Notice([this] { Subscribe(true); });
        }
    }

    struct Subscription {
        std::shared_ptr<typename T::Keeper> observer;
        SubscriptionCookie cookie;
        bool keeps = false;
        std::shared_ptr<std::atomic<std::size_t>> ended =
            std::make_shared<std::atomic<std::size_t>>(0);  ///< calls that have returned
        std::size_t expected = 0;
        bool live = true;
    };

    bool HasKeepers() const {
        return std::any_of(all_.begin(), all_.end(), [](const Subscription& subscription) {
            return subscription.live && subscription.keeps;
        });
    }

    void Subscribe(bool keeps) {
        Subscription added;
        added.keeps = keeps;
        added.observer = std::make_shared<typename T::Keeper>(
            [this, ended = added.ended](const typename T::Change&) {
                RunInside();
                ++*ended;
            });
        const int result = keeps ? T::Subscribe(pipeline_, added.observer, added.cookie)
                                 : T::SubscribeOther(pipeline_, added.observer, added.cookie);
        all_.push_back(added);
        EXPECT_EQ(added.cookie, SubscriptionCookie(all_.size()));
        EXPECT_EQ(result, model_.Subscribed());
    }

    void UnsubscribeOldest() {
        const auto oldest = std::find_if(all_.begin(), all_.end(),
                                         [](const Subscription& each) { return each.live; });
        if (oldest == all_.end()) {
            return;
        }
        oldest->live = false;
        EXPECT_EQ(pipeline_.proxy->Unsubscribe(oldest->cookie), 0);
        model_.Unsubscribed(HasKeepers());
    }

    /// Tells, and waits until all who are to be told have been. `inside` runs in the first call,
    /// or not at all when there is none.
    void Notice(std::function<void()> inside) {
        std::vector<std::size_t> told;
        for (std::size_t each = 0; each < all_.size(); ++each) {
            if (all_[each].live && all_[each].keeps) {
                told.push_back(each);
            }
        }
        if (told.empty() || !model_.Notice()) {
            return;  // nothing would tell when it has passed
        }
        for (const std::size_t each : told) {
            ++all_[each].expected;
        }
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            insideDone_ = !inside;
            inside_ = std::move(inside);
        }
        T::Tell(pipeline_);
        while (!insideDone_) {
            std::this_thread::yield();
        }
        for (const std::size_t each : told) {
            while (*all_[each].ended < all_[each].expected) {
                std::this_thread::yield();
            }
        }
    }

    void Failure() {
        if (model_.waiting) {
            model_.Notice();
            pipeline_.notifier->Give({kRefused, {}});
        }
    }

    void RunInside() {
        std::function<void()> inside;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            inside.swap(inside_);
        }
        if (inside) {
            AwaitTheWaitingCall();
            inside();
            insideDone_ = true;
        }
    }

    Pipeline pipeline_;
    Model model_{T::kOthersKeepRunning,
                 T::kFailedStartIsReturned,
                 false,
                 false,
                 false,
                 false,
                 false,
                 false,
                 {}};
    std::deque<Subscription> all_;  // changed inside an observer while the test's thread waits
    std::mutex mutex_;
    std::function<void()> inside_;
    std::atomic<bool> insideDone_{true};
};

int Length() {
    return std::getenv("ZAM_FULL_SIZE") != nullptr ? 5 : 3;
}

/// All sequences behind a prefix that starts the pipeline and one that does not.
template <typename Pipeline>
void PlayAll() {
    testing::RecordingLogger logger(100);  // the failures that are provoked are no news
    std::vector<int> sequence(static_cast<std::size_t>(Length()), 0);
    for (;;) {
        for (const bool subscribed : {false, true}) {
            SCOPED_TRACE(::testing::PrintToString(sequence) + (subscribed ? " started" : ""));
            Player<Pipeline> player;
            if (subscribed) {
                player.Play(Step::Subscribe);
            }
            for (const int step : sequence) {
                player.Play(static_cast<Step>(step));
            }
        }
        if (::testing::Test::HasFailure()) {
            return;
        }
        std::size_t place = 0;
        while (place < sequence.size() && ++sequence[place] == kSteps) {
            sequence[place++] = 0;
        }
        if (place == sequence.size()) {
            return;
        }
    }
}

TEST(Interleavings, OfTheDataChangeSubscriberAreAsPromised) {
    PlayAll<DataPipeline>();
}

TEST(Interleavings, OfTheStateSubscriberAreAsPromised) {
    PlayAll<StatePipeline>();
}

}  // namespace
}  // namespace zam_connector::test
