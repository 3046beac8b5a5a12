#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qx/conn_state_notifier.h"
#include "qx/endpoint_names.h"
#include "qx/zam_data_notifier.h"
#include "service_fixture.h"
#include "vd/service_locator.h"

namespace zam_connector::test {
namespace {

using ::testing::ElementsAre;

constexpr int kNothing = 1;  ///< status of an answer without a notice

/// A registration at a notifier, by the stubs, and everything that it is told.
class Notifier {
public:
    static Notifier OfData() { return Notifier(qx::kZamDataNotifierEndpoint); }
    static Notifier OfStates() { return Notifier(qx::kConnStateNotifierEndpoint); }

    int Register() {
        qx::EmptyRequest request{};
        qx::RegisterResponse response{};
        const int status = proxy_.ops->Register(&proxy_, &request, nullptr, &response, nullptr);
        id_ = response.registrationId;
        return status != 0 ? status : response.error;
    }

    /// Transport status, or the notice's.
    int Wait(std::uint32_t& value) {
        qx::RegistrationRequest request{};
        request.registrationId = id_;
        qx::NoticeResponse response{};
        const int status =
            proxy_.ops->GetChangedDataType(&proxy_, &request, nullptr, &response, nullptr);
        value = response.value;
        return status != 0 ? -1 : response.status;
    }

    int Unregister() {
        qx::RegistrationRequest request{};
        request.registrationId = id_;
        qx::EmptyResponse response{};
        return proxy_.ops->Unregister(&proxy_, &request, nullptr, &response, nullptr);
    }

    std::uint32_t Id() const noexcept { return id_; }

private:
    /// Both notifiers have the same messages in the same order, so one table serves both.
    explicit Notifier(const char* endpoint) {
        const std::uint32_t handle = ServiceLocatorConnect(qx::kConnectorService);
        transport_ = std::make_unique<VdZorTransport>();
        VdZorTransport_Init(transport_.get(), handle, 0, 0);
        qx_zam_connector_ZamDataNotifier_proxy_init(&proxy_, transport_.get(),
                                                    ServiceLocatorGetRiid(handle, endpoint));
    }

    std::unique_ptr<VdZorTransport> transport_;
    qx_zam_connector_ZamDataNotifier_proxy proxy_{};
    std::uint32_t id_ = 0;
};

/// Asks for notices on a thread of its own, until the registration ends.
class Listener {
public:
    explicit Listener(Notifier notifier) : notifier_(std::move(notifier)) {
        EXPECT_EQ(notifier_.Register(), 0);
        thread_ = std::thread([this] { Run(); });
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() {
        isEnding_ = true;
        EXPECT_EQ(notifier_.Unregister(), 0);
        thread_.join();
    }

    std::vector<std::uint32_t> Values() const {
        const std::lock_guard lock(mutex_);
        return values_;
    }

    bool Heard(std::size_t count) const {
        return Eventually([this, count] { return Values().size() >= count; });
    }

private:
    void Run() {
        while (!isEnding_) {
            std::uint32_t value = 0;
            if (notifier_.Wait(value) == 0) {
                const std::lock_guard lock(mutex_);
                values_.push_back(value);
            }
        }
    }

    Notifier notifier_;
    std::atomic<bool> isEnding_{false};
    mutable std::mutex mutex_;
    std::vector<std::uint32_t> values_;  // guarded by mutex_
    std::thread thread_;
};

using ServiceNotices = ServiceTest;

TEST_F(ServiceNotices, TellOfAnEditInTheFolder) {
    StartService();
    const Listener listener(Notifier::OfData());
    service_.WriteData("policy.json", R"({"a": 1})");
    EXPECT_TRUE(listener.Heard(1));
    service_.WriteData("policy.json", R"({ "a": 1 })");
    service_.WriteData("policy.json", R"({"a": 2})");
    EXPECT_TRUE(listener.Heard(2));
    service_.WriteData("updates_status.json", "{}");
    EXPECT_TRUE(listener.Heard(3));
    EXPECT_THAT(listener.Values(), ElementsAre(1, 1, 6));
}

TEST_F(ServiceNotices, EndWithTheRegistration) {
    StartService();
    Notifier notifier = Notifier::OfData();
    ASSERT_EQ(notifier.Register(), 0);
    EXPECT_GT(static_cast<std::int32_t>(notifier.Id()), 0);
    std::atomic<int> status{-2};
    std::thread waiting([&] {
        std::uint32_t value = 0;
        status = notifier.Wait(value);
    });
    EXPECT_EQ(notifier.Unregister(), 0);
    waiting.join();
    EXPECT_EQ(status, kNothing);
}

TEST_F(ServiceNotices, GoOnAfterACrashOfTheServiceWithAllThatMayHaveBeenMissed) {
    StartService();
    const Listener data(Notifier::OfData());
    const Listener states(Notifier::OfStates());
    service_.Kill();
    service_.WriteData("server_data.json", R"({"version_major": 2})");
    StartService();
    EXPECT_TRUE(data.Heard(7));
    EXPECT_TRUE(states.Heard(1));
    service_.WriteData("server_data.json", R"({"version_major": 3})");
    EXPECT_TRUE(data.Heard(8));
    EXPECT_THAT(data.Values(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 4)) << "each kind once";
    EXPECT_THAT(states.Values(), ElementsAre(0)) << "the state of now";
}

TEST_F(ServiceNotices, TellManyListenersOfOneProcessEveryStateOnceAndInOrder) {
    constexpr int kListeners = 40;  // more than a process keeps idle connections
    constexpr int kRounds = 5;
    service_.WriteData("connection.json", R"({
        "start": [{"state": "connecting"}, {"state": "connected"}],
        "stop": [{"state": "stopping"}, {"state": "stopped"}]})");
    StartService();
    std::vector<std::unique_ptr<Listener>> listeners;
    for (int listener = 0; listener < kListeners; ++listener) {
        listeners.push_back(std::make_unique<Listener>(Notifier::OfStates()));
    }
    std::vector<std::uint32_t> expected;
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(Controller().Start(Parameters()), 0);
        EXPECT_EQ(Controller().Stop(), 0);
        expected.insert(expected.end(), {1, 2, 4, 0});
    }
    for (const auto& listener : listeners) {
        EXPECT_TRUE(listener->Heard(expected.size()));
        EXPECT_EQ(listener->Values(), expected);
    }
}

TEST_F(ServiceNotices, GoOnAfterDroppedConnections) {
    service_.WriteData("faults.json", R"({"seed": 1, "rules": [{"endpoint": "connStateNotifier",
        "operation": "GetState", "when": "after", "probability": 0.5, "drop": true}]})");
    service_.WriteData("connection.json", R"({
        "start": [{"state": "connecting"}, {"state": "connected"}],
        "stop": [{"state": "stopping"}, {"state": "stopped"}]})");
    StartService();
    const Listener states(Notifier::OfStates());
    EXPECT_EQ(Controller().Start(Parameters()), 0);
    EXPECT_EQ(Controller().Stop(), 0);
    EXPECT_TRUE(states.Heard(4));
    EXPECT_THAT(states.Values(), ElementsAre(1, 2, 4, 0));
    // The rule must not meet the farewell's wake-up for ever.
    service_.WriteData("faults.json", R"({"rules": []})");
}

TEST_F(ServiceNotices, OfAKilledClientEndWithItsSession) {
    ::setenv("ZAM_LOG_LEVEL", "2", 1);  // the service tells of what it drops
    service_.Start();
    ::unsetenv("ZAM_LOG_LEVEL");
    int told[2];
    ASSERT_EQ(::pipe(told), 0);
    const pid_t client = ::fork();
    if (client == 0) {
        Notifier notifier = Notifier::OfData();
        const char word = notifier.Register() == 0 ? '1' : '0';
        std::uint32_t value = 0;
        if (::write(told[1], &word, 1) == 1) {
            notifier.Wait(value);
        }
        ::_exit(1);
    }
    ASSERT_GT(client, 0);
    char word = 0;
    EXPECT_EQ(::read(told[0], &word, 1), 1);
    EXPECT_EQ(word, '1');
    ::kill(client, SIGKILL);
    ::waitpid(client, nullptr, 0);
    ::close(told[0]);
    ::close(told[1]);
    EXPECT_TRUE(Eventually([this] {
        return service_.Log().find("1 data registrations ended with their client") !=
               std::string::npos;
    }));
}

}  // namespace
}  // namespace zam_connector::test
