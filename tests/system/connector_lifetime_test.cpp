// Connectors one after the other, and two beside each other.

#include <atomic>
#include <iostream>
#include <thread>
#include <vector>

#include "connector_fixture.h"
#include "process_measures.h"

namespace zam_connector::test {
namespace {

using ::testing::IsEmpty;

class ConnectorLifetime : public ServiceConnectorTest {
protected:
    /// Of both processes; that of the client first.
    std::vector<ProcessMeasures> Measures() const {
        return {ProcessMeasures::Of(::getpid()), ProcessMeasures::Of(service_.Pid())};
    }

    /// A client's whole life. Some have observers, and with them the library's threads.
    static void Live(int number) {
        constexpr int kObserved = 10;
        const auto connector = Connector();
        const Interfaces interfaces(*connector);
        ZamConnectorState state{};
        EXPECT_EQ(interfaces.controller->GetState(state), 0);
        if (number % kObserved == 0) {
            const auto policies = std::make_shared<PolicyObserver>();
            const auto states = std::make_shared<StateObserver>();
            SubscriptionCookie cookie;
            EXPECT_EQ(interfaces.dataChangeSubscriber->SubscribeOnPolicyChange(policies, cookie),
                      0);
            EXPECT_EQ(interfaces.stateSubscriber->SubscribeOnStateChange(states, cookie), 0);
            EXPECT_THAT(WrongAnswers(interfaces), IsEmpty());
        }
    }
};

TEST_F(ConnectorLifetime, LeavesNothingHoweverOftenItIsLived) {
    constexpr int kWarmUp = 300;  // every sort of connection and buffer has been in use by then
    const int connectors = IsFullSize() ? 100'000 : 2'000;
    // What allocators keep differs by some pages from one moment to the next. At full size this is
    // ten bytes for each connector.
    constexpr std::size_t kToleranceKiB = 1024;
    // Connections that are idle stay open for the next call. Which of two calls at once finds one,
    // and which makes one, is chance.
    constexpr std::size_t kIdleConnections = 4;

    service_.Start();
    for (int number = 0; number < kWarmUp; ++number) {
        Live(number);
    }
    const auto before = Measures();
    const auto start = std::chrono::steady_clock::now();
    for (int number = 0; number < connectors; ++number) {
        Live(number);
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(Eventually([&] {
        return Measures()[0].threads <= before[0].threads &&
               Measures()[1].threads <= before[1].threads;
    }));
    const auto after = Measures();
    for (std::size_t process = 0; process < before.size(); ++process) {
        SCOPED_TRACE(process == 0 ? "of the client" : "of the service");
        EXPECT_LE(after[process].descriptors, before[process].descriptors + kIdleConnections);
        if (kHasMemoryOfItsOwn) {
            EXPECT_LE(after[process].residentKiB, before[process].residentKiB + kToleranceKiB);
        }
    }
    EXPECT_THAT(logger_.Records(), IsEmpty());
    if (IsFullSize()) {
        std::cout << connectors << " connectors in " << time.count() << " s\nclient:  " << before[0]
                  << " before, " << after[0] << " after\nservice: " << before[1] << " before, "
                  << after[1] << " after\n";
    }
}

using TwoConnectors = ServiceConnectorTest;

TEST_F(TwoConnectors, ShareNoInterface) {
    service_.Start();
    const auto first = Connector();
    const auto second = Connector();
    ASSERT_NE(first, second);
    const auto ofFirst = Interfaces(*first).Watched();
    const auto ofSecond = Interfaces(*second).Watched();
    for (std::size_t each = 0; each < ofFirst.size(); ++each) {
        EXPECT_NE(ofFirst[each].lock(), ofSecond[each].lock()) << each;
    }
}

/// Calls through the interfaces over and over until this goes.
class BusyThreads {
public:
    using WrongAnswers = std::vector<std::string>(const Interfaces& interfaces);

    BusyThreads(const Interfaces& interfaces, WrongAnswers* wrongAnswers) {
        constexpr int kThreads = 3;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads_.emplace_back([this, &interfaces, wrongAnswers] {
                while (!isDone_) {
                    EXPECT_THAT(wrongAnswers(interfaces), IsEmpty());
                    ++rounds_;
                }
            });
        }
    }
    BusyThreads(const BusyThreads&) = delete;
    BusyThreads& operator=(const BusyThreads&) = delete;
    ~BusyThreads() {
        isDone_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

    int Rounds() const { return rounds_; }

private:
    std::atomic<bool> isDone_{false};
    std::atomic<int> rounds_{0};
    std::vector<std::thread> threads_;
};

TEST_F(TwoConnectors, DoNotMissEachOther) {
    const int rounds = IsFullSize() ? 2'000 : 20;
    service_.Start();
    const auto kept = Connector();
    const Interfaces interfaces(*kept);
    const auto observer = std::make_shared<PolicyObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(interfaces.dataChangeSubscriber->SubscribeOnPolicyChange(observer, cookie), 0);
    const std::size_t threads = OwnThreads();
    {
        const BusyThreads busy(interfaces, &WrongAnswers);
        for (int round = 1; round <= rounds; ++round) {
            auto other = Connector();
            auto others = std::make_unique<Interfaces>(*other);
            const auto otherObserver = std::make_shared<PolicyObserver>();
            ASSERT_EQ(others->dataChangeSubscriber->SubscribeOnPolicyChange(otherObserver, cookie),
                      0);
            EXPECT_THAT(WrongAnswers(*others), IsEmpty());
            WritePolicy(round);
            ASSERT_TRUE(WasTold(*otherObserver, round));
            const int before = busy.Rounds();
            others.reset();
            other.reset();
            EXPECT_TRUE(Eventually([&] { return busy.Rounds() > before + 3; }));
            ASSERT_TRUE(WasTold(*observer, round));
        }
    }
    WritePolicy(0);
    EXPECT_TRUE(WasTold(*observer, 0)) << "notifications go on";
    EXPECT_TRUE(Eventually([&] { return OwnThreads() <= threads; }));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

/// The one that was made first goes first.
TEST_F(TwoConnectors, GoInEitherOrder) {
    service_.Start();
    auto first = Connector();
    const auto second = Connector();
    const Interfaces interfaces(*second);
    const auto lost = std::make_shared<PolicyObserver>();
    const auto observer = std::make_shared<PolicyObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(Interfaces(*first).dataChangeSubscriber->SubscribeOnPolicyChange(lost, cookie), 0);
    ASSERT_EQ(interfaces.dataChangeSubscriber->SubscribeOnPolicyChange(observer, cookie), 0);
    first.reset();
    WritePolicy(1);
    EXPECT_TRUE(WasTold(*observer, 1));
    EXPECT_THAT(WrongAnswers(interfaces), IsEmpty());
    EXPECT_EQ(lost->Count(), 0U);
}

}  // namespace
}  // namespace zam_connector::test
