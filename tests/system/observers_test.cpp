// Observers in this and other processes, over the real service.

#include <dirent.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "data_fixture.h"
#include "observing_process.h"
#include "support/real_subscribers.h"
#include "zam_connector_testing/recording_observer.h"

namespace zam_connector::test {
namespace {

using testing::RecordingObserver;
using PolicyChange = std::pair<std::uint64_t, ZamPolicy>;
using PolicyObserver = RecordingObserver<PolicyChange>;
using StateObserver = RecordingObserver<ZamConnectorState>;
using SettingsSyncedObserver = RecordingObserver<std::uint64_t>;

class Notices : public ServiceDataTest {
protected:
    Notices() { service_.WriteData("connection.json", kQuickLink); }

    void StartAll() {
        StartService();
        subscribers_ = std::make_unique<RealSubscribers>();
    }

    void WritePolicy(long number) {
        service_.WriteData("policy.json", fmt::format(R"({{"number": {}}})", number));
    }

    static long NumberOf(const PolicyChange& change) {
        const zuv::TValue* const number = change.second.tree.Find("number");
        return number == nullptr ? -1 : number->Get<long>();
    }

    std::unique_ptr<RealSubscribers> subscribers_;
};

TEST_F(Notices, TellAnEditedPolicy) {
    StartAll();
    const auto observer = std::make_shared<PolicyObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(observer, cookie), 0);
    WritePolicy(1);
    ASSERT_TRUE(observer->WaitForCount(1));
    std::pair<unsigned long, ZamPolicy> fetched;
    ASSERT_EQ(Provider().GetPolicy(fetched), 0);
    EXPECT_EQ(observer->Values()[0].first, fetched.first);
    EXPECT_TRUE(observer->Values()[0].second.tree.IsIdenticalTo(fetched.second.tree));
    EXPECT_EQ(subscribers_->Data()->Unsubscribe(cookie), 0);
    WritePolicy(2);
    EXPECT_TRUE(Eventually([&] {
        unsigned long hash = 0;
        return Provider().GetPolicyHash(hash) == 0 && hash != fetched.first;
    }));
    EXPECT_EQ(observer->Count(), 1U);
}

/// A file is written in halves, and the same content again: one report for what is another content.
TEST_F(Notices, TellEachContentOnceAndNoHalfOfIt) {
    StartAll();
    const auto observer = std::make_shared<PolicyObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(observer, cookie), 0);
    WritePolicy(1);
    ASSERT_TRUE(observer->WaitForCount(1));
    WritePolicy(1);
    service_.WriteData("policy.json", R"({"number": )");
    WritePolicy(2);
    ASSERT_TRUE(observer->WaitForCount(2));
    EXPECT_EQ(NumberOf(observer->Values()[0]), 1);
    EXPECT_EQ(NumberOf(observer->Values()[1]), 2);
}

TEST_F(Notices, TellNothingThatWasBeforeTheSubscription) {
    WritePolicy(1);
    StartAll();
    const auto observer = std::make_shared<PolicyObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(observer, cookie), 0);
    WritePolicy(2);
    ASSERT_TRUE(observer->WaitForCount(1));
    EXPECT_EQ(NumberOf(observer->Values()[0]), 2);
}

TEST_F(Notices, TellTheHashOfSettingsThatTheServerHas) {
    StartAll();
    const auto anchor = std::make_shared<PolicyObserver>();
    const auto observer = std::make_shared<SettingsSyncedObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(anchor, cookie), 0);
    ASSERT_EQ(subscribers_->Data()->SubscribeOnSettingsSynced(observer, cookie), 0);
    unsigned long hash = 0;
    ASSERT_EQ(Holder().SetSettings({zuv::Map{{"a", true}}}, hash), 0);
    ASSERT_TRUE(observer->WaitForCount(1));
    EXPECT_EQ(observer->Values()[0], hash);
}

TEST_F(Notices, TellEveryStateInOrder) {
    StartAll();
    const auto observer = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(subscribers_->States()->SubscribeOnStateChange(observer, cookie), 0);
    std::vector<ZamConnectorState> expected;
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(Controller().Start(Parameters()), 0);
        ASSERT_TRUE(Eventually([&] { return State() == ZamConnectorState::Connected; }));
        ASSERT_EQ(Controller().Stop(), 0);
        ASSERT_TRUE(Eventually([&] { return State() == ZamConnectorState::Stopped; }));
        expected.insert(expected.end(),
                        {ZamConnectorState::Connecting, ZamConnectorState::Connected,
                         ZamConnectorState::Stopping, ZamConnectorState::Stopped});
    }
    ASSERT_TRUE(observer->WaitForCount(expected.size()));
    EXPECT_EQ(observer->Values(), expected);
}

/// An observer that does not return holds up its own subscriber; what changes meanwhile is told as
/// one.
TEST_F(Notices, HoldUpNobodyElseAndMergeWhatComesMeanwhile) {
    StartAll();
    std::promise<void> go;
    std::shared_future<void> isGo = go.get_future().share();
    const auto slow =
        std::make_shared<PolicyObserver>([isGo](const PolicyChange&) { isGo.wait(); });
    const auto states = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(slow, cookie), 0);
    ASSERT_EQ(subscribers_->States()->SubscribeOnStateChange(states, cookie), 0);
    RealSubscribers other;
    const auto quick = std::make_shared<PolicyObserver>();
    ASSERT_EQ(other.Data()->SubscribeOnPolicyChange(quick, cookie), 0);
    WritePolicy(1);
    ASSERT_TRUE(slow->WaitForCount(1));
    for (long number = 2; number < 6; ++number) {
        const std::size_t before = quick->Count();
        WritePolicy(number);
        ASSERT_TRUE(quick->WaitForCount(before + 1));
    }
    ASSERT_EQ(Controller().Start(Parameters()), 0);
    ASSERT_TRUE(states->WaitForCount(2));
    EXPECT_EQ(slow->Count(), 1U);
    go.set_value();
    ASSERT_TRUE(slow->WaitUntil(
        [&](const std::vector<PolicyChange>& values) { return NumberOf(values.back()) == 5; }));
    // One for what waited in the queue; another when the last change came with it on its way.
    EXPECT_LE(slow->Count(), 3U);
}

TEST_F(Notices, ReachObserversAfterTheServiceFellOver) {
    WritePolicy(1);
    StartAll();
    const auto observer = std::make_shared<PolicyObserver>();
    const auto states = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(observer, cookie), 0);
    ASSERT_EQ(subscribers_->States()->SubscribeOnStateChange(states, cookie), 0);
    ASSERT_EQ(Controller().Start(Parameters()), 0);
    ASSERT_TRUE(states->WaitForCount(2));
    service_.Kill();
    WritePolicy(2);
    service_.Start();
    ASSERT_TRUE(observer->WaitUntil([](const std::vector<PolicyChange>& values) {
        return !values.empty() && NumberOf(values.back()) == 2;
    }));
    ASSERT_TRUE(states->WaitUntil([](const std::vector<ZamConnectorState>& values) {
        return values.back() == ZamConnectorState::Stopped;
    }));
}

/// While the service is away an `Unsubscribe` succeeds, and so does giving everything up.
TEST_F(Notices, EndWhileTheServiceIsAway) {
    StartAll();
    const auto observer = std::make_shared<PolicyObserver>();
    const auto states = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    SubscriptionCookie stateCookie;
    ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(observer, cookie), 0);
    ASSERT_EQ(subscribers_->States()->SubscribeOnStateChange(states, stateCookie), 0);
    service_.Kill();
    EXPECT_EQ(subscribers_->Data()->Unsubscribe(cookie), 0);
    subscribers_.reset();
    service_.Start();
    subscribers_ = std::make_unique<RealSubscribers>();
    ASSERT_EQ(subscribers_->Data()->SubscribeOnPolicyChange(observer, cookie), 0);
    WritePolicy(1);
    EXPECT_TRUE(observer->WaitUntil([](const std::vector<PolicyChange>& values) {
        return !values.empty() && NumberOf(values.back()) == 1;
    }));
}

/// Edits of random kinds, and what each kind's observers must have been told last.
class Folder {
public:
    explicit Folder(const testing::ServiceProcess& service, unsigned seed)
        : service_(service), random_(seed) {}

    void Edit() { Write(static_cast<int>(random_() % 6), ++number_); }

    /// Every file once, with a content that it never had.
    void EditAll() {
        for (int kind = 0; kind < 6; ++kind) {
            Write(kind, ++number_);
        }
    }

    /// The value of the last change by kind, when the service has read all of them.
    std::map<std::string, std::string> Last(IZamDataProvider& provider) const {
        unsigned long policy = 0;
        unsigned long settings = 0;
        unsigned long subscriptions = 0;
        unsigned long updates = 0;
        provider.GetPolicyHash(policy);
        provider.GetSettingsHash(settings);
        provider.GetSubscriptionHash(subscriptions);
        provider.GetZamUpdatesStatusHash(updates);
        return {{"policy", std::to_string(policy)},
                {"settings", std::to_string(settings)},
                {"subscriptions", std::to_string(subscriptions)},
                {"server", std::to_string(server_)},
                {"cert", std::to_string(cert_)},
                {"updates", std::to_string(updates)}};
    }

    long ServerNumber() const { return server_; }
    std::size_t CertSize() const { return cert_; }

private:
    void Write(int kind, long number) {
        switch (kind) {
            case 0:
                return service_.WriteData("policy.json", fmt::format(R"({{"n": {}}})", number));
            case 1:
                return service_.WriteData("product_settings.json",
                                          fmt::format(R"({{"n": {}}})", number));
            case 2:
                return service_.WriteData("subscriptions.json",
                                          fmt::format(R"({{"events": {{"e{}": {{}}}}}})", number));
            case 3:
                server_ = number;
                return service_.WriteData("server_data.json",
                                          fmt::format(R"({{"clock_offset_s": {}}})", number));
            case 4:
                cert_ = static_cast<std::size_t>(number);
                return service_.WriteData("reserve_cert.pem", std::string(cert_, 'c'));
            default:
                return service_.WriteData("updates_status.json",
                                          fmt::format(R"({{"approved": ["{:032x}"]}})", number));
        }
    }

    const testing::ServiceProcess& service_;
    std::mt19937 random_;
    long number_ = 0;
    long server_ = 0;
    std::size_t cert_ = 0;
};

class ManyNotices : public Notices {
protected:
    using Processes = std::vector<std::unique_ptr<ObservingProcess>>;

    std::string ErrorFile() const { return service_.DataDirectory() + "/../clients.log"; }

    /// Whether every observer of data was told last what the folder holds.
    bool HaveConverged(Processes& processes, const Folder& folder, std::size_t dataObservers) {
        ZamServerData server;
        std::string cert;
        Provider().GetZamServerData(server);
        Provider().GetZamReserveCert(cert);
        if (server.clockOffset.count() != folder.ServerNumber() ||
            cert.size() != folder.CertSize()) {
            return false;
        }
        const std::map<std::string, std::string> last = folder.Last(Provider());
        return std::all_of(processes.begin(), processes.end(), [&](auto& process) {
            std::size_t told = 0;
            for (const auto& [number, observer] : process->Observers()) {
                const auto expected = last.find(observer.kind);
                told += expected != last.end() && observer.values.back() == expected->second;
            }
            return told == dataObservers;
        });
    }
};

TEST_F(ManyNotices, LeadEveryObserverOfEveryProcessToTheLastValue) {
    constexpr int kObservers = 20;  // 18 of data, 2 of states
    const int edits = IsFullSize() ? 500 : 60;
    StartAll();
    Processes processes;
    for (int each = 0; each < 3; ++each) {
        processes.push_back(std::make_unique<ObservingProcess>(kObservers, ErrorFile()));
    }
    Folder folder(service_, 20241121U);
    std::vector<std::string> states;
    for (int edit = 0; edit < edits; ++edit) {
        folder.Edit();
        if (edit % 10 == 0) {
            ASSERT_EQ(Controller().Start(Parameters()), 0);
            ASSERT_TRUE(Eventually([&] { return State() == ZamConnectorState::Connected; }));
            ASSERT_EQ(Controller().Stop(), 0);
            ASSERT_TRUE(Eventually([&] { return State() == ZamConnectorState::Stopped; }));
            states.insert(states.end(), {"1", "2", "4", "0"});
        }
    }
    folder.EditAll();
    EXPECT_TRUE(Eventually([&] { return HaveConverged(processes, folder, 18); }));
    for (auto& process : processes) {
        EXPECT_TRUE(process->WaitUntil([&](const auto& observers) {
            return observers.count(6) == 1 && observers.at(6).values == states &&
                   observers.count(13) == 1 && observers.at(13).values == states;
        }));
        EXPECT_EQ(process->Stop(), 0);
    }
}

TEST_F(ManyNotices, ReachEveryObserverThoughTheServiceFallsOverAgainAndAgain) {
    constexpr int kObservers = 7;  // 6 of data, 1 of states
    const int rounds = IsFullSize() ? 200 : 6;
    const int clients = IsFullSize() ? 10 : 4;
    StartAll();
    Processes processes;
    for (int each = 0; each < clients; ++each) {
        processes.push_back(std::make_unique<ObservingProcess>(kObservers, ErrorFile()));
    }
    Folder folder(service_, 7U);
    std::vector<std::chrono::duration<double, std::milli>> times;
    for (int round = 0; round < rounds; ++round) {
        folder.Edit();
        service_.Kill();
        folder.EditAll();
        service_.Start();
        const auto start = std::chrono::steady_clock::now();
        ASSERT_TRUE(Eventually([&] { return HaveConverged(processes, folder, 6); }))
            << "round " << round;
        times.emplace_back(std::chrono::steady_clock::now() - start);
    }
    for (auto& process : processes) {
        EXPECT_EQ(process->Stop(), 0);
    }
    std::sort(times.begin(), times.end());
    if (IsFullSize()) {
        std::cout << "from restart to convergence: median " << times[times.size() / 2].count()
                  << " ms, longest " << times.back().count() << " ms\n";
    }
}

/// Descriptors of a process.
std::size_t DescriptorsOf(pid_t process) {
    std::size_t count = 0;
    if (DIR* const folder = ::opendir(fmt::format("/proc/{}/fd", process).c_str())) {
        while (::readdir(folder) != nullptr) {
            ++count;
        }
        ::closedir(folder);
    }
    return count;
}

/// Clients that end in every way while notices arrive leave nothing behind in the service.
TEST_F(ManyNotices, LeaveNothingOfClientsThatEnd) {
    const int rounds = IsFullSize() ? 60 : 6;
    StartAll();
    WritePolicy(0);
    const std::size_t before = DescriptorsOf(service_.Pid());
    std::mt19937 random(11U);
    Folder folder(service_, 13U);
    for (int round = 0; round < rounds; ++round) {
        Processes processes;
        for (int each = 0; each < 4; ++each) {
            processes.push_back(std::make_unique<ObservingProcess>(7, ErrorFile(), each % 2 == 0));
        }
        for (std::size_t ended = 0; ended < processes.size(); ++ended) {
            for (std::size_t edit = random() % 4; edit > 0; --edit) {
                folder.Edit();
            }
            if (ended < 2) {
                processes[ended]->Kill();
            } else {
                EXPECT_EQ(processes[ended]->Stop(), 0);
            }
        }
        EXPECT_TRUE(processes[2]->Said("gone"));
    }
    EXPECT_TRUE(Eventually([&] { return DescriptorsOf(service_.Pid()) <= before; }));
}

}  // namespace
}  // namespace zam_connector::test
