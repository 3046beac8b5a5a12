#include "server/socket_round_trip.h"

#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <system_error>
#include <thread>

#include "zam_platform/unique_fd.h"

namespace zam_platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostTrips = 15;

/// Of a machine that is busy it is learned no more in longer time.
constexpr std::chrono::milliseconds kLongestTrial{20};

/// Moves the calling thread to a CPU that is not `cpu`, whatever this process is bound to.
bool LeaveCpu(int cpu) noexcept {
    const long count = ::sysconf(_SC_NPROCESSORS_CONF);
    for (int other = 0; other < count && other < CPU_SETSIZE; ++other) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(static_cast<std::size_t>(other), &set);
        if (other != cpu && ::sched_setaffinity(0, sizeof(set), &set) == 0) {
            return true;
        }
    }
    return false;
}

/// Sends back what comes until the other end is shut down; at once where it cannot be elsewhere.
void Echo(int socket, int otherCpu) noexcept {
    if (!LeaveCpu(otherCpu)) {
        ::shutdown(socket, SHUT_RDWR);
    }
    char byte = 0;
    while (::recv(socket, &byte, 1, 0) == 1 && ::send(socket, &byte, 1, MSG_NOSIGNAL) == 1) {
    }
}

bool MakeTrip(int socket) noexcept {
    char byte = 0;
    return ::send(socket, &byte, 1, MSG_NOSIGNAL) == 1 && ::recv(socket, &byte, 1, 0) == 1;
}

Nanoseconds Measure() noexcept {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return kGreatestCap;
    }
    const UniqueFd near(ends[0]);
    const UniqueFd far(ends[1]);
    std::array<Nanoseconds, kMostTrips> trips{};
    std::size_t made = 0;
    try {
        std::thread echo(&Echo, far.Get(), ::sched_getcpu());
        const auto begin = Clock::now();
        auto last = begin;
        // The first waits for the thread.
        if (MakeTrip(near.Get())) {
            last = Clock::now();
            while (made < kMostTrips && last - begin < kLongestTrial && MakeTrip(near.Get())) {
                const auto now = Clock::now();
                trips[made++] = now - last;
                last = now;
            }
        }
        ::shutdown(near.Get(), SHUT_RDWR);
        echo.join();
    } catch (const std::system_error&) {
        return kGreatestCap;
    }
    if (made == 0) {
        return kGreatestCap;
    }
    auto* const median = trips.data() + made / 2;
    std::nth_element(trips.data(), median, trips.data() + made);
    return *median;
}

}  // namespace

Nanoseconds SocketRoundTrip() noexcept {
    static const Nanoseconds roundTrip = Measure();
    return roundTrip;
}

}  // namespace zam_platform
