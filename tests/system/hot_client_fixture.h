#pragma once

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "data_fixture.h"
#include "history.h"
#include "shared/cpu_share.h"
#include "support/lines.h"
#include "support/running_program.h"
#include "support/temporary_folder.h"

namespace zam_connector::test {

/// The greatest number of a call that stands in memory that this process shares with a service; 0:
/// none does.
inline std::uint64_t NumberInMemory(pid_t process) {
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

inline cpu_set_t AllowedCpus() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    ::sched_getaffinity(0, sizeof(allowed), &allowed);
    return allowed;
}

inline bool CanPoll() {
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

/// A client whose calls go through memory, in a process of its own. It is started by the test.
class HotClientTest : public ServiceDataTest {
protected:
    using ServiceDataTest::ServiceDataTest;

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

}  // namespace zam_connector::test
