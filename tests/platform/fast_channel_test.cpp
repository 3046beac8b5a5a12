#include <gtest/gtest.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/shared_channel.h"
#include "shared/cpu_share.h"
#include "support/shared_link.h"
#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// Pins the calling thread to one of the CPUs that the process may use.
void PinTo(std::size_t index) {
    cpu_set_t allowed;
    ASSERT_EQ(::sched_getaffinity(::getpid(), sizeof(allowed), &allowed), 0);
    std::vector<std::size_t> cpus;
    for (std::size_t cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &allowed)) {
            cpus.push_back(cpu);
        }
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpus.at(index % cpus.size()), &one);
    ASSERT_EQ(::sched_setaffinity(0, sizeof(one), &one), 0);
}

/// How many clients in this process have memory for their requests.
std::size_t ClientsWithMemory() {
    std::ifstream maps("/proc/self/maps");
    std::size_t found = 0;
    for (std::string line; std::getline(maps, line);) {
        found += line.find("memfd:zam_requests") != std::string::npos &&
                         line.find(" rw-s ") != std::string::npos
                     ? 1U
                     : 0U;
    }
    return found;
}

bool HasSecondCpu() {
    cpu_set_t allowed;
    return ::sched_getaffinity(0, sizeof(allowed), &allowed) == 0 && CPU_COUNT(&allowed) > 1;
}

/// Calls whose connection the service drops when it has served them: each of so many.
constexpr std::uint64_t kDropped = 23;

/// Makes calls on a CPU that is not the service's until one has gone through memory.
void AwaitCallThroughMemory(ServiceLink& link) {
    Background([&link] {
        PinTo(1);
        Await("a call through memory", [&link] {
            for (int call = 0; call < 50; ++call) {
                TestCall(kEcho, 1).On(link);
            }
            return link.Use().channels.memoryCalls > 0;
        });
    });
}

/// Both sides of the fast channel in one process, on two CPUs.
class FastChannel : public ::testing::Test {
protected:
    FastChannel() {
        server_.OnLoop([] {
            PinTo(0);
            return 0;
        });
        server_.Endpoint().Custom([this](const Request& request, Responder responder) {
            const auto value = request.As<TestMessage>().value;
            {
                const std::lock_guard lock(mutex_);
                twice_ += served_.insert(value).second ? 0U : 1U;
            }
            if (value % kDropped == 0) {
                responder.Drop();
                return;
            }
            TestMessage message{};
            message.value = value;
            responder.Answer(message);
        });
    }

    std::unique_ptr<ServiceLink> NewLink() {
        return std::make_unique<ServiceLink>([this](const SessionToken& token, const Deadline&) {
            return NewHotChannel(server_.Connect().Release(), token, process_);
        });
    }

    zam_connector::testing::RecordingLogger logger_;
    ProcessPolling process_ = BoundlessPolling();
    std::mutex mutex_;
    std::set<std::uint64_t> served_;  // guarded by mutex_
    std::size_t twice_ = 0;           // guarded by mutex_
    TestServer server_{{.spinCap = std::chrono::microseconds(50)}};
};

/// Counts a thread down, however it ends.
class Leaving {
public:
    explicit Leaving(std::atomic<std::uint64_t>& left) noexcept : left_(left) {}
    Leaving(const Leaving&) = delete;
    Leaving& operator=(const Leaving&) = delete;
    ~Leaving() { --left_; }

private:
    std::atomic<std::uint64_t>& left_;
};

TEST_F(FastChannel, AnswersEveryCallRightWhicheverWayItGoes) {
    constexpr std::uint64_t kThreads = 4;
    constexpr std::uint64_t kCalls = 600;
    const auto link = NewLink();
    std::atomic<std::uint64_t> left{kThreads};
    {
        std::vector<std::unique_ptr<Background>> threads;
        for (std::uint64_t thread = 0; thread < kThreads; ++thread) {
            threads.push_back(std::make_unique<Background>([&, thread] {
                PinTo(1);
                const Leaving leaving(left);
                for (std::uint64_t index = 0; index < kCalls; ++index) {
                    const std::uint64_t value = thread * kCalls + index + 1;
                    if (index % 50 == 17) {
                        TestCall hold(kHold, value);
                        ASSERT_EQ(hold.On(*link), kStatusOk);
                        ASSERT_EQ(hold.Value(), value);
                    } else if (index % 10 == 3) {
                        ASSERT_EQ(TestCall(kFail, value + 100).On(*link),
                                  static_cast<std::int32_t>(value + 100));
                    } else {
                        const Bytes arena =
                            Pattern(index % 5 == 0 ? value * 37 % 20480 : index % 64,
                                    static_cast<std::uint32_t>(value));
                        TestCall echo(kEcho, value);
                        echo.RequestArena(arena).ResponseArena(20480);
                        ASSERT_EQ(echo.On(*link), kStatusOk);
                        ASSERT_EQ(echo.Value(), value);
                        ASSERT_TRUE(echo.Answered() == arena);
                    }
                }
            }));
        }
        // Calls that are held are answered from this thread.
        while (left != 0) {
            server_.Endpoint().ReleaseAll();
            ::sched_yield();
        }
        server_.Endpoint().ReleaseAll();
    }
    EXPECT_EQ(server_.Endpoint().Calls().size(), kThreads * kCalls);
    if (HasSecondCpu() && HasCpuForPolling(std::chrono::steady_clock::now())) {
        AwaitCallThroughMemory(*link);
    }
    EXPECT_EQ(link->Use().calls, server_.Endpoint().Calls().size());
    EXPECT_TRUE(server_.BrokenSessions().empty());
    EXPECT_TRUE(logger_.Records().empty());
}

/// Each connection asks for memory in front of its first call, which waits for another thread.
TEST_F(FastChannel, AnswersFirstCallsRightThatWaitBehindAskingForMemory) {
    constexpr std::uint64_t kThreads = 12;  // more than get memory
    constexpr std::uint64_t kCalls = 40;
    std::vector<std::pair<std::uint64_t, Responder>> waiting;  // guarded by mutex_
    server_.Endpoint().Custom([&](const Request& request, Responder responder) {
        const std::lock_guard lock(mutex_);
        waiting.emplace_back(request.As<TestMessage>().value, std::move(responder));
    });
    const auto link = NewLink();
    {
        std::vector<std::unique_ptr<Background>> threads;
        for (std::uint64_t thread = 0; thread < kThreads; ++thread) {
            threads.push_back(std::make_unique<Background>([&, thread] {
                PinTo(1);
                for (std::uint64_t index = 0; index < kCalls; ++index) {
                    const std::uint64_t value = thread * kCalls + index + 1;
                    TestCall call(index == 0 ? kCustom : kEcho, value);
                    ASSERT_EQ(call.On(*link), kStatusOk);
                    ASSERT_EQ(call.Value(), value);
                }
            }));
        }
        Await("the calls", [&] {
            const std::lock_guard lock(mutex_);
            return waiting.size() == kThreads;
        });
        // Who came last is answered first.
        const std::lock_guard lock(mutex_);
        for (; !waiting.empty(); waiting.pop_back()) {
            TestMessage message{};
            message.value = waiting.back().first;
            waiting.back().second.Answer(message);
        }
    }
    EXPECT_EQ(server_.Endpoint().Calls().size(), kThreads * kCalls);
    EXPECT_EQ(server_.Connections(), kThreads);
    EXPECT_EQ(link->Use().calls, kThreads * kCalls);
    EXPECT_TRUE(server_.BrokenSessions().empty());
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(FastChannel, ServesNoCallTwiceAndLosesNoneThatItAcknowledgedWhenItDropsConnections) {
    constexpr std::uint64_t kThreads = 3;
    constexpr std::uint64_t kCalls = 400;
    const auto link = NewLink();
    std::set<std::uint64_t> acknowledged;
    std::mutex acknowledgedMutex;
    {
        std::vector<std::unique_ptr<Background>> threads;
        for (std::uint64_t thread = 0; thread < kThreads; ++thread) {
            threads.push_back(std::make_unique<Background>([&, thread] {
                PinTo(1);
                for (std::uint64_t index = 0; index < kCalls; ++index) {
                    const std::uint64_t value = thread * kCalls + index + 1;
                    TestCall call(kCustom, value);
                    const std::int32_t status = call.On(*link);
                    if (status == kStatusOk) {
                        ASSERT_EQ(call.Value(), value);
                        const std::lock_guard lock(acknowledgedMutex);
                        acknowledged.insert(value);
                    } else {
                        ASSERT_EQ(status, kStatusBroken);
                        ASSERT_EQ(value % kDropped, 0U);
                    }
                }
            }));
        }
    }
    const std::lock_guard lock(mutex_);
    EXPECT_EQ(twice_, 0U);
    EXPECT_TRUE(
        std::includes(served_.begin(), served_.end(), acknowledged.begin(), acknowledged.end()));
    EXPECT_EQ(served_.size(), kThreads * kCalls);
    EXPECT_EQ(acknowledged.size(), kThreads * kCalls - kThreads * kCalls / kDropped);
}

TEST(FastChannelAtRest, LetsGoOfMemoryThatTheServiceHasGivenUp) {
    if (!HasSecondCpu()) {
        GTEST_SKIP() << "memory is for clients on another CPU";
    }
    TestServer server(
        {.spinCap = std::chrono::microseconds(50), .memoryKept = std::chrono::milliseconds(20)});
    server.OnLoop([] {
        PinTo(0);
        return 0;
    });
    ProcessPolling process{.leave = PollingLeave::Boundless(std::chrono::steady_clock::now()),
                           .glancePeriod = Nanoseconds(0)};
    // Whenever its calls come they are close, until there is memory.
    const ClientPolling polling{std::chrono::hours(1)};
    ServiceLink link([&](const SessionToken& token, const Deadline&) {
        return std::make_unique<SharedChannel>(server.Connect().Release(), token, polling, process);
    });
    Background([&] {
        PinTo(1);
        const std::size_t before = ClientsWithMemory();
        Await("memory", [&] {
            TestCall(kEcho, 1).On(link);
            return ClientsWithMemory() > before;
        });
        Await("its end", [&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            TestCall(kEcho, 1).On(link);
            return ClientsWithMemory() == before;
        });
    });
    EXPECT_FALSE(link.Use().channels.hasMemory);
}

}  // namespace
}  // namespace zam_platform::testing
