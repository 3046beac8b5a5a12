#include <atomic>
#include <thread>
#include <vector>

#include "history.h"
#include "service_fixture.h"

namespace zam_connector::test {
namespace {

using ServiceThreads = ServiceTest;

TEST_F(ServiceThreads, EightThreadsCallOneProxyAndEachGetsItsOwnAnswers) {
    constexpr int kThreads = 8;
    constexpr int kCalls = 20'000;
    StartService();
    ZamConnectorSettings written;
    written.eventQueueLimit = 4711;
    ASSERT_EQ(SettingsHolder().Set(written), 0);

    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int call = 0; call < kCalls; ++call) {
                // Answers of two sizes and contents, so that one thread's in another's hands shows.
                if ((call + thread) % 2 == 0) {
                    ZamConnectorState state = ZamConnectorState::Refused;
                    wrong +=
                        Controller().GetState(state) != 0 || state != ZamConnectorState::Stopped;
                } else {
                    ZamConnectorSettings read;
                    wrong += SettingsHolder().Get(read) != 0 || read != written;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(ServiceThreads, ACallThatTheServiceAnswersLateHoldsUpNoOther) {
    constexpr int kCalls = 100;
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "connCommandSender",
        "operation": "PostZamEvent", "when": "after", "delay_ms": 86400000}]})");
    StartService();

    std::thread late(
        [this] { EXPECT_EQ(CommandSender().PostZamEvent("late"), kUnspecifiedError); });
    // The event is in the history, so its call is waiting for the answer that is held back.
    EXPECT_TRUE(Eventually([this] { return EventsOf(service_).size() == 1; }));
    for (int call = 0; call < kCalls; ++call) {
        EXPECT_EQ(State(), ZamConnectorState::Stopped);
        EXPECT_EQ(CommandSender().ScheduleSync(), call == 0 ? 0 : kFalse);
    }
    service_.Kill();
    late.join();
}

}  // namespace
}  // namespace zam_connector::test
