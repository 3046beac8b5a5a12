#include "call_sides.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "process.h"

namespace zam_bench {
namespace {

/// One of so many calls of a round is made before it, uncounted.
constexpr std::size_t kWarmUpShare = 10;

/// CPU time of a process that has fallen asleep: the kernel adds the time of one that runs to its
/// clock no sooner than with the next tick. A service that waits awake does so for 50 us.
double SettledCpuMicroseconds(pid_t process) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return CpuMicroseconds(process);
}

double Percentile(std::vector<float>& times, std::size_t percent) {
    const auto place = times.begin() + static_cast<std::ptrdiff_t>(times.size() * percent / 100);
    std::nth_element(times.begin(), place, times.end());
    return static_cast<double>(*place);
}

}  // namespace

CallSides::CallSides(const CallCell& cell, Way way)
    : cell_(cell), service_([way] {
          const auto environment = Take(way);
          return ComputingService();
      }()) {
    const auto environment = Take(way);
    for (int client = 0; client < cell.clients; ++client) {
        clients_.emplace_back(service_.Directory());
        Pin(clients_.back().Pid(), cell.placement.client);
    }
    Pin(service_.Pid(), cell.placement.server);
}

std::vector<CallTimes> CallSides::Call(std::size_t calls) {
    const std::size_t ofEach = std::max<std::size_t>(calls / clients_.size(), 1);
    for (ComputingClient& client : clients_) {
        client.Start({ofEach, cell_.think, cell_.handler});
    }
    std::vector<CallTimes> times;
    for (ComputingClient& client : clients_) {
        times.push_back(client.Await());
    }
    return times;
}

double CallSides::Run(std::size_t calls) {
    const double before = NowMicroseconds();
    Call(calls);
    return NowMicroseconds() - before;
}

CallCost CallSides::Round(std::size_t calls) {
    Call(calls / kWarmUpShare);
    const double before = SettledCpuMicroseconds(service_.Pid());
    const std::vector<CallTimes> clients = Call(calls);
    double cpu = SettledCpuMicroseconds(service_.Pid()) - before;
    std::vector<float> times;
    for (const CallTimes& client : clients) {
        times.insert(times.end(), client.calls.begin(), client.calls.end());
        cpu += client.cpu;
    }
    const auto count = static_cast<double>(times.size());
    return {.p50 = Percentile(times, 50), .p99 = Percentile(times, 99), .cpu = cpu / count};
}

}  // namespace zam_bench
