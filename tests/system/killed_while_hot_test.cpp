#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "data_fixture.h"
#include "history.h"
#include "shared/cpu_share.h"
#include "support/lines.h"
#include "support/program.h"
#include "support/running_program.h"
#include "support/temporary_folder.h"

namespace zam_connector::test {
namespace {

/// The greatest number of a call that stands in memory that this process shares with a service; 0:
/// none does.
std::uint64_t NumberInMemory(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    std::ifstream maps(folder + "/maps");
    const int memory = ::open((folder + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    std::uint64_t greatest = 0;
    for (std::string line; memory >= 0 && std::getline(maps, line);) {
        if (line.find("memfd:zam_requests") == std::string::npos) {
            continue;
        }
        std::uint64_t number = 0;
        const auto address = static_cast<off_t>(std::stoull(line, nullptr, 16));
        if (::pread(memory, &number, sizeof(number), address) == sizeof(number)) {
            greatest = std::max(greatest, number);
        }
    }
    ::close(memory);
    return greatest;
}

cpu_set_t AllowedCpus() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    ::sched_getaffinity(0, sizeof(allowed), &allowed);
    return allowed;
}

bool CanPoll() {
    const cpu_set_t allowed = AllowedCpus();
    return CPU_COUNT(&allowed) > 1 &&
           zam_platform::HasCpuForPolling(std::chrono::steady_clock::now());
}

/// What is started meanwhile runs on one of the CPUs that this process may use: who finds its
/// service on its own CPU is given no memory for a while.
class OnCpu {
public:
    explicit OnCpu(int index) : before_(AllowedCpus()) {
        std::size_t cpu = 0;
        while (!CPU_ISSET(cpu, &before_) || index-- > 0) {
            ++cpu;
        }
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        ::sched_setaffinity(0, sizeof(one), &one);
    }
    OnCpu(const OnCpu&) = delete;
    OnCpu& operator=(const OnCpu&) = delete;
    ~OnCpu() { ::sched_setaffinity(0, sizeof(before_), &before_); }

private:
    const cpu_set_t before_;
};

/// A client whose calls go through memory, and either side falling over.
class KilledWhileHot : public ServiceDataTest {
protected:
    std::string Log() const { return scratch_.Path("client"); }

    void StartHotService() {
        const OnCpu first(0);
        service_.Start();
    }

    void StartClient() {
        const OnCpu second(1);
        client_ = std::make_unique<zamctl::test::RunningProgram>(
            ZAM_HOT_CLIENT, std::vector<std::string>{std::to_string(clients_++), Log()},
            std::vector<std::string>{"ZAM_RUNTIME_DIR=" + service_.RuntimeDirectory()});
    }

    /// Waits until calls go through memory.
    bool IsHot() {
        std::uint64_t first = 0;
        return Eventually([this, &first] {
            const std::uint64_t number = NumberInMemory(client_->Pid());
            first = first == 0 ? number : first;
            return number > first;
        });
    }

    /// What the client wrote behind this word.
    std::vector<std::string> Told(const std::string& word) const {
        std::vector<std::string> told;
        for (const std::string& line : zam_test::Lines(zam_test::Content(Log()))) {
            if (line.starts_with(word + ' ')) {
                told.push_back(line.substr(word.size() + 1));
            }
        }
        return told;
    }

    void ExpectEventsOnce() {
        std::map<std::string, int> events;
        for (const std::string& event : EventsOf(service_)) {
            EXPECT_EQ(++events[event], 1) << event << " was done twice";
        }
        EXPECT_FALSE(Told("event").empty());
        for (const std::string& event : Told("event")) {
            EXPECT_EQ(events.count(event), 1U) << event << " was confirmed and is lost";
        }
    }

    const zam_test::TemporaryFolder scratch_;
    std::unique_ptr<zamctl::test::RunningProgram> client_;
    int clients_ = 0;
};

/// The kernel ends the descriptors of a killed process from the greatest number down, and takes
/// some 15 ms for each that watches a folder: a connection with a lower number would be told that
/// late.
TEST_F(KilledWhileHot, HasNoConnectionBelowWhatEndsSlowly) {
    StartHotService();
    StartClient();
    ASSERT_TRUE(Eventually([this] { return !Told("event").empty(); }));
    int slowest = -1;
    int connection = std::numeric_limits<int>::max();
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(service_.Pid()) + "/fd")) {
        const int number = std::stoi(entry.path().filename());
        std::error_code isClosed;
        const std::string what = std::filesystem::read_symlink(entry.path(), isClosed);
        if (what == "anon_inode:inotify") {
            slowest = std::max(slowest, number);
        } else if (what.starts_with("socket:")) {
            connection = std::min(connection, number);
        }
    }
    EXPECT_GE(slowest, 0);
    EXPECT_LT(slowest, connection);
}

TEST_F(KilledWhileHot, EndsWaitsAtOnceAndLosesAndRepeatsNothing) {
    if (!CanPoll()) {
        GTEST_SKIP() << "calls go through memory between two CPUs";
    }
    const int kills = IsFullSize() ? 1000 : 10;  // of either side
    StartHotService();
    StartClient();
    std::mt19937 random(20261122);
    const auto pause = [&random] {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3'000));
    };
    for (int kill = 0; kill < kills; ++kill) {
        ASSERT_TRUE(IsHot());
        pause();
        service_.Kill();
        StartHotService();
        ASSERT_TRUE(IsHot());
        pause();
        client_->Signal(SIGKILL);
        client_->Wait();
        StartClient();
    }
    ASSERT_TRUE(IsHot());
    const std::size_t before = Told("event").size();
    EXPECT_TRUE(Eventually([&] { return Told("event").size() > before; }));
    client_->Signal(SIGKILL);
    client_->Wait();
    ExpectEventsOnce();

    std::vector<std::int64_t> waits;
    for (const std::string& waited : Told("waited")) {
        waits.push_back(std::stoll(waited));
    }
    ASSERT_FALSE(waits.empty());
    std::sort(waits.begin(), waits.end());
    const auto at = [&waits](std::size_t percent) {
        return std::to_string(waits[(waits.size() - 1) * percent / 100] / 1000);
    };
    const auto atOnce = std::upper_bound(waits.begin(), waits.end(), 1'000'000) - waits.begin();
    const std::string figures =
        fmt::format("{} of {} waits within 1 ms; us {} half, {} 99 %, {} longest", atOnce,
                    waits.size(), at(50), at(99), at(100));
    RecordProperty("waits", figures);
    fmt::print("{}\n", figures);
    EXPECT_LT(std::chrono::nanoseconds(waits.back()), kBound);
}

}  // namespace
}  // namespace zam_connector::test
