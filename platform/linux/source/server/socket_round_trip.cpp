#include "server/socket_round_trip.h"

#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <optional>
#include <thread>
#include <vector>

#include "zam_platform/unique_fd.h"

namespace zam_platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kTrips = 15;

/// Of a machine that is busy it is learned no more in longer time.
constexpr std::chrono::milliseconds kLongestTrial{20};

/// Tries to leave a CPU to another thread. A sandbox may forbid it; the scheduler mostly does it.
void LeaveCpu(int cpu) noexcept {
    const long count = ::sysconf(_SC_NPROCESSORS_CONF);
    for (int other = 0; other < count && other < CPU_SETSIZE; ++other) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(static_cast<std::size_t>(other), &set);
        if (other != cpu && ::sched_setaffinity(0, sizeof(set), &set) == 0) {
            return;
        }
    }
}

/// Answers every byte with the CPU that it came to, until the other end is shut down.
void Echo(int socket, int otherCpu) noexcept {
    LeaveCpu(otherCpu);
    char byte = 0;
    while (::recv(socket, &byte, 1, 0) == 1) {
        const int cpu = ::sched_getcpu();
        if (::send(socket, &cpu, sizeof(cpu), MSG_NOSIGNAL) != sizeof(cpu)) {
            break;
        }
    }
    ::shutdown(socket, SHUT_RDWR);
}

/// The CPU of the other side; empty when it is gone.
std::optional<int> MakeTrip(int socket) noexcept {
    const char byte = 0;
    int cpu = -1;
    const bool isMade = ::send(socket, &byte, 1, MSG_NOSIGNAL) == 1 &&
                        ::recv(socket, &cpu, sizeof(cpu), MSG_WAITALL) == sizeof(cpu);
    return isMade ? std::optional(cpu) : std::nullopt;
}

/// Those of some trips that went to another CPU.
std::vector<Nanoseconds> MakeTrips() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return {};
    }
    const UniqueFd near(ends[0]);
    const UniqueFd far(ends[1]);
    std::vector<Nanoseconds> trips;
    trips.reserve(kTrips);
    std::thread echo(&Echo, far.Get(), ::sched_getcpu());
    MakeTrip(near.Get());  // waits for the thread
    const auto begin = Clock::now();
    auto last = begin;
    for (std::size_t made = 0; made < kTrips && last - begin < kLongestTrial; ++made) {
        const auto cpu = MakeTrip(near.Get());
        const auto now = Clock::now();
        if (!cpu) {
            break;  // an answer that comes late would be taken for the next one's
        }
        if (*cpu != ::sched_getcpu()) {
            trips.push_back(now - last);
        }
        last = now;
    }
    ::shutdown(near.Get(), SHUT_RDWR);
    echo.join();
    return trips;
}

Nanoseconds Measure() noexcept {
    try {
        std::vector<Nanoseconds> trips = MakeTrips();
        if (!trips.empty()) {
            const auto median = trips.begin() + static_cast<std::ptrdiff_t>(trips.size() / 2);
            std::nth_element(trips.begin(), median, trips.end());
            return *median;
        }
    } catch (const std::exception&) {
        // No thread, or no memory.
    }
    return kGreatestCap;
}

}  // namespace

Nanoseconds SocketRoundTrip() noexcept {
    static const Nanoseconds roundTrip = Measure();
    return roundTrip;
}

}  // namespace zam_platform
