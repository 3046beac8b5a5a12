#include <ctime>
#include <map>
#include <random>
#include <stop_token>
#include <thread>
#include <vector>

#include "history.h"
#include "service_fixture.h"

namespace zam_connector::test {
namespace {

using ::testing::HasSubstr;

using ServiceOutage = ServiceTest;

double ProcessCpuSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

TEST_F(ServiceOutage, ACallUnderWayFailsWhenTheServiceIsKilled) {
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "connController",
        "operation": "Stop", "when": "after", "delay_ms": 86400000}]})");
    StartService();
    EXPECT_EQ(Controller().Start(Parameters()), 0);

    std::thread waiting([this] { EXPECT_EQ(Controller().Stop(), kUnspecifiedError); });
    EXPECT_TRUE(Eventually([this] { return HistoryOf(service_, "stop").size() == 1; }));
    service_.Kill();
    waiting.join();

    const auto records = logger_.Records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().text,
              "ZamConnControllerProxy: ipc call Stop terminated with a error 3");
    EXPECT_EQ(records.back().level, 4);
    EXPECT_EQ(records.back().file, "zam_conn_controller_proxy");
    EXPECT_EQ(records.back().function, "Stop");
}

TEST_F(ServiceOutage, TheFirstCallAfterTheServiceIsBackSucceeds) {
    StartService();
    for (int outage = 0; outage < 5; ++outage) {
        EXPECT_EQ(State(), ZamConnectorState::Stopped);
        service_.Kill();
        ZamConnectorState state = ZamConnectorState::Refused;
        EXPECT_EQ(Controller().GetState(state), kUnspecifiedError);
        EXPECT_EQ(state, ZamConnectorState::Refused);
        service_.Start();
        EXPECT_EQ(Controller().GetState(state), 0);
        EXPECT_EQ(state, ZamConnectorState::Stopped);
    }
}

TEST_F(ServiceOutage, APooledConnectionOfAServiceThatWasReplacedIsNotMissed) {
    StartService();
    EXPECT_EQ(State(), ZamConnectorState::Stopped);
    service_.Kill();
    service_.Start();
    EXPECT_EQ(State(), ZamConnectorState::Stopped) << "no call has failed in between";
}

TEST_F(ServiceOutage, NothingIsSentTwiceAndWhatWasConfirmedIsKept) {
    constexpr int kThreads = 4;
    constexpr int kKills = 12;
    StartService();
    std::vector<std::vector<std::string>> confirmed(kThreads);
    std::vector<std::jthread> threads;
    for (std::size_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread](const std::stop_token& isDone) {
            for (int number = 0; !isDone.stop_requested(); ++number) {
                const std::string event = std::to_string(thread) + "/" + std::to_string(number);
                if (CommandSender().PostZamEvent(event) == 0) {
                    confirmed[thread].push_back(event);
                }
            }
        });
    }
    std::mt19937 random(20261121);
    for (int kill = 0; kill < kKills; ++kill) {
        const std::size_t before = EventsOf(service_).size();
        const std::size_t wanted = before + random() % 40;
        EXPECT_TRUE(Eventually([&] { return EventsOf(service_).size() >= wanted; }));
        service_.Kill();
        service_.Start();
    }
    threads.clear();

    std::map<std::string, int> counts;
    for (const std::string& event : EventsOf(service_)) {
        ++counts[event];
    }
    for (const auto& [event, count] : counts) {
        EXPECT_EQ(count, 1) << event;
    }
    for (const auto& events : confirmed) {
        EXPECT_FALSE(events.empty());
        for (const std::string& event : events) {
            EXPECT_EQ(counts.count(event), 1U) << event << " was confirmed and is not there";
        }
    }
}

TEST_F(ServiceOutage, ATightLoopOfCallsUsesLittleOfACoreWhileTheServiceIsAway) {
    constexpr std::chrono::seconds kOutage{10};
    constexpr double kShareOfOneCore = 0.05;
    StartService();
    EXPECT_EQ(State(), ZamConnectorState::Stopped);
    service_.Kill();

    const double before = ProcessCpuSeconds();
    const auto end = std::chrono::steady_clock::now() + kOutage;
    int calls = 0;
    while (std::chrono::steady_clock::now() < end) {
        ZamConnectorState state{};
        EXPECT_EQ(Controller().GetState(state), kUnspecifiedError);
        ++calls;
    }
    EXPECT_LT(ProcessCpuSeconds() - before, kShareOfOneCore * static_cast<double>(kOutage.count()));
    EXPECT_LT(calls, 100) << "failing returns are spaced out by up to 250 ms";
    EXPECT_GT(calls, 30) << "but no further";

    service_.Start();
    EXPECT_EQ(State(), ZamConnectorState::Stopped);
}

}  // namespace
}  // namespace zam_connector::test
