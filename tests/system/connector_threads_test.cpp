// One connector and all of its interfaces, used by many threads at once.

#include <fmt/format.h>

#include <map>
#include <thread>
#include <vector>

#include "connector_fixture.h"
#include "history.h"
#include "zam_connector/result_code.h"

namespace zam_connector::test {
namespace {

using ::testing::IsEmpty;

class ConnectorThreads : public ServiceConnectorTest {
protected:
    static constexpr int kThreads = 8;

    /// Each thread has settings of its own, in several pieces.
    static ZamProductSettings SettingsOf(int thread) {
        zuv::Map map;
        for (int entry = 0; entry < 30; ++entry) {
            map["key" + std::to_string(entry)] = static_cast<long>(thread);
        }
        return {map};
    }

    static std::string EventOf(int thread, int round) {
        return fmt::format("{}/{}", thread, round);
    }

    /// What changes something at the service.
    static void Write(const Interfaces& interfaces, int thread, int round, unsigned long expected) {
        EXPECT_EQ(interfaces.commandSender->PostZamEvent(EventOf(thread, round)), 0);
        const int scheduled = interfaces.commandSender->ScheduleSync();
        EXPECT_TRUE(scheduled == 0 || scheduled == kFalse) << scheduled;
        unsigned long hash = 0;
        EXPECT_EQ(interfaces.productDataHolder->SetSettings(SettingsOf(thread), hash), 0);
        EXPECT_EQ(hash, expected) << "the hash of another thread's settings";
        DynamicAppInfo info;
        info.uptime = decltype(info.uptime)(static_cast<std::uint32_t>(thread));
        EXPECT_EQ(interfaces.productDataHolder->SetAppInfoDynamic(info), 0);
    }

    /// Observers come and go, and with the last ones the library's threads.
    static void Observe(const Interfaces& interfaces) {
        const auto policies = std::make_shared<PolicyObserver>();
        const auto states = std::make_shared<StateObserver>();
        SubscriptionCookie policy;
        SubscriptionCookie state;
        EXPECT_EQ(interfaces.dataChangeSubscriber->SubscribeOnPolicyChange(policies, policy), 0);
        EXPECT_EQ(interfaces.stateSubscriber->SubscribeOnStateChange(states, state), 0);
        EXPECT_EQ(interfaces.dataChangeSubscriber->Unsubscribe(policy), 0);
        EXPECT_EQ(interfaces.stateSubscriber->Unsubscribe(state), 0);
    }
};

TEST_F(ConnectorThreads, UseEveryInterfaceAtOnceAndGetTheirOwnAnswers) {
    const int rounds = IsFullSize() ? 1'000 : 12;
    service_.Start();
    const auto connector = Connector();
    std::vector<unsigned long> hashes(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        ASSERT_EQ(Interfaces(*connector)
                      .productDataHolder->SetSettings(SettingsOf(thread),
                                                      hashes[static_cast<std::size_t>(thread)]),
                  0);
    }
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < rounds; ++round) {
                const Interfaces interfaces(*connector);
                EXPECT_THAT(WrongAnswers(interfaces), IsEmpty());
                Write(interfaces, thread, round, hashes[static_cast<std::size_t>(thread)]);
                Observe(interfaces);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::map<std::string, int> counts;
    for (const std::string& event : EventsOf(service_)) {
        ++counts[event];
    }
    EXPECT_EQ(counts.size(), static_cast<std::size_t>(kThreads * rounds));
    for (const auto& [event, count] : counts) {
        EXPECT_EQ(count, 1) << event;
    }
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(ConnectorThreads, ObserveThroughOneConnectorAndAreAllTold) {
    service_.Start();
    const auto connector = Connector();
    std::vector<std::shared_ptr<PolicyObserver>> observers(kThreads);
    std::vector<std::thread> threads;
    for (auto& observer : observers) {
        observer = std::make_shared<PolicyObserver>();
        threads.emplace_back([&connector, &observer] {
            SubscriptionCookie cookie;
            EXPECT_EQ(Interfaces(*connector)
                          .dataChangeSubscriber->SubscribeOnPolicyChange(observer, cookie),
                      0);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    WritePolicy(1);
    for (const auto& observer : observers) {
        EXPECT_TRUE(WasTold(*observer, 1));
    }
}

}  // namespace
}  // namespace zam_connector::test
