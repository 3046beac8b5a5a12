// What a client holds may be released in any order: the connector and what it handed out.

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "connector_fixture.h"

namespace zam_connector::test {
namespace {

using ::testing::IsEmpty;
using Order = std::vector<std::size_t>;

class ReleaseOrder : public ServiceConnectorTest {
protected:
    void SetUp() override {
        ServiceConnectorTest::SetUp();
        service_.WriteData(
            "connection.json",
            R"({"start": [{"state": "connecting"}], "stop": [{"state": "stopped"}]})");
    }

    /// A client with observers, and what each of its references is.
    struct Client {
        Client() : connector(Connector()), held(*connector) {
            SubscriptionCookie cookie;
            EXPECT_EQ(held.dataChangeSubscriber->SubscribeOnPolicyChange(policies, cookie), 0);
            EXPECT_EQ(held.stateSubscriber->SubscribeOnStateChange(states, cookie), 0);
        }

        std::shared_ptr<IZamConnector> connector;
        Interfaces held;
        std::shared_ptr<PolicyObserver> policies = std::make_shared<PolicyObserver>();
        std::shared_ptr<StateObserver> states = std::make_shared<StateObserver>();

        /// All of them, the connector first and the observers last.
        std::vector<std::function<void()>> Releases() {
            std::vector<std::function<void()>> all = held.Releases();
            all.insert(all.begin(), [this] { connector.reset(); });
            all.emplace_back([this] { policies.reset(); });
            all.emplace_back([this] { states.reset(); });
            return all;
        }

        std::vector<std::weak_ptr<void>> Watched() const {
            std::vector<std::weak_ptr<void>> all = held.Watched();
            all.insert(all.end(), {connector, policies, states});
            return all;
        }
    };

    static constexpr std::size_t kReferences = 14;

    /// Releases everything that a client has. What is held meanwhile can be used: all of it as long
    /// as the connector is there, and the tables without it.
    static void ReleaseAll(const Order& order, bool isUsed) {
        Client client;
        const auto watched = client.Watched();
        const auto releases = client.Releases();
        ASSERT_EQ(releases.size(), kReferences);
        for (const std::size_t each : order) {
            releases[each]();
            if (isUsed) {
                EXPECT_THAT(client.connector ? WrongAnswers(client.held) : WrongTables(client.held),
                            IsEmpty());
            }
        }
        // A thread of the library may be the last to let go.
        EXPECT_TRUE(Eventually([&watched] {
            return std::all_of(watched.begin(), watched.end(),
                               [](const std::weak_ptr<void>& each) { return each.expired(); });
        })) << ::testing::PrintToString(order);
    }

    /// But that a notice came when its subscriber was just gone.
    void ExpectNothingLogged() const {
        for (const testing::LogRecord& record : logger_.Records()) {
            EXPECT_EQ(record.text, "ZamDataProcessor: dataManger weak ptr is expired!");
        }
    }
};

/// The connector, both subscribers, what the threads of one fetch through, and an observer: all
/// that has a part in notifications.
TEST_F(ReleaseOrder, OfWhatNotifiesIsFree) {
    constexpr std::size_t kConnector = 0;
    constexpr std::size_t kStates = 3;
    constexpr std::size_t kProvider = 5;
    constexpr std::size_t kData = 6;
    constexpr std::size_t kObserver = 12;
    service_.Start();
    long number = 0;
    Order order = {kConnector, kStates, kProvider, kData, kObserver};
    do {
        Order whole = order;
        for (std::size_t each = 0; each < kReferences; ++each) {
            if (std::find(order.begin(), order.end(), each) == order.end()) {
                whole.insert(number % 2 == 0 ? whole.begin() : whole.end(), each);
            }
        }
        WritePolicy(++number);  // the notice comes at any moment of what follows
        ReleaseAll(whole, false);
    } while (std::next_permutation(order.begin(), order.end()));
    EXPECT_EQ(number, 120);
    ExpectNothingLogged();
}

TEST_F(ReleaseOrder, OfEverythingIsFree) {
    const int orders = IsFullSize() ? 20'000 : 300;
    constexpr int kUsed = 5;
    service_.Start();
    std::mt19937 random(20261121);
    Order order(kReferences);
    std::iota(order.begin(), order.end(), 0U);
    for (int number = 0; number < orders; ++number) {
        std::shuffle(order.begin(), order.end(), random);
        if (number % 10 == 0) {  // one in ten begins with the connector, and one ends with it
            std::iter_swap(order.begin(), std::find(order.begin(), order.end(), 0U));
        } else if (number % 10 == 1) {
            std::iter_swap(std::prev(order.end()), std::find(order.begin(), order.end(), 0U));
        }
        if (number % 3 == 0) {
            WritePolicy(number);
        }
        ReleaseAll(order, number % kUsed == 0);
    }
    ExpectNothingLogged();
}

TEST_F(ReleaseOrder, MayBeThatOfManyThreads) {
    const int rounds = IsFullSize() ? 1'000 : 20;
    service_.Start();
    for (int round = 0; round < rounds; ++round) {
        Client client;
        const auto watched = client.Watched();
        WritePolicy(round);
        std::vector<std::thread> threads;
        for (const std::function<void()>& release : client.Releases()) {
            threads.emplace_back(release);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(Eventually([&watched] {
            return std::all_of(watched.begin(), watched.end(),
                               [](const std::weak_ptr<void>& each) { return each.expired(); });
        }));
    }
}

/// The connector stops the notifications of those subscribers only that nobody else holds.
TEST_F(ReleaseOrder, LeavesASubscriberThatIsHeldItsNotifications) {
    service_.Start();
    Client client;
    client.connector.reset();
    WritePolicy(1);
    EXPECT_TRUE(WasTold(*client.policies, 1));
    const auto starter = Connector();
    ASSERT_EQ(Interfaces(*starter).controller->Start(Parameters()), 0);
    EXPECT_TRUE(client.states->WaitForCount(1));
}

}  // namespace
}  // namespace zam_connector::test
