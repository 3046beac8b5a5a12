#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "memory_ping_pong.h"
#include "ping_pong.h"
#include "process.h"
#include "service.h"
#include "suites.h"
#include "vd/transport_features.h"
#include "zam_connector/call_deadline.h"

namespace zam_bench {
namespace {

constexpr int kRounds = 9;
constexpr int kWarmUpCalls = 1000;
constexpr int kCalls = 10'000;

/// A deadline as applications have it, far beyond what the call takes.
constexpr std::chrono::milliseconds kDeadline{500};

/// Middle round-trip time, and CPU time of both processes per call, in microseconds.
struct Cost {
    double p50;
    double cpu;
};

template <typename Call>
Cost Measure(pid_t server, const Call& call) {
    for (int i = 0; i < kWarmUpCalls; ++i) {
        call();
    }
    std::vector<double> times;
    times.reserve(kCalls);
    const double cpuBefore = CpuMicroseconds(0) + CpuMicroseconds(server);
    for (int i = 0; i < kCalls; ++i) {
        const double before = NowMicroseconds();
        call();
        times.push_back(NowMicroseconds() - before);
    }
    const double cpu = CpuMicroseconds(0) + CpuMicroseconds(server) - cpuBefore;
    return {Median(std::move(times)), cpu / kCalls};
}

VdTransportStatistics StatisticsOf(const zam_connector::test::RealConnection& connection) {
    VdTransportStatistics statistics{};
    statistics.size = sizeof(statistics);
    VdZorTransport_Statistics(&connection.Transport(), &statistics);
    return statistics;
}

/// How many of the calls between two looks went through memory, in percent.
double MemoryShare(const VdTransportStatistics& before, const VdTransportStatistics& after) {
    constexpr double kAll = 100;
    return kAll * static_cast<double>(after.memoryCalls - before.memoryCalls) /
           static_cast<double>(after.calls - before.calls);
}

}  // namespace

void MeasureGetState(Report& report) {
    const Service service;
    zam_connector::test::RealConnection connection;
    SocketPair sockets = MakeSocketPair();
    const Child bareServer([&sockets] {
        sockets.client.Reset();
        ServePings(sockets.server.Get(), kGetStateExchange);
    });
    sockets.server.Reset();
    MemoryPeer memoryPeer;

    for (const Placement& placement : kPlacements) {
        Pin(0, placement.client);
        Pin(service.Pid(), placement.server);
        Pin(bareServer.Pid(), placement.server);
        std::vector<double> calls;
        std::vector<double> pings;
        std::vector<double> callCpu;
        std::vector<double> pingCpu;
        std::vector<double> boundCalls;
        std::vector<double> memoryPings;
        const bool isApart = placement.client >= 0 && placement.client != placement.server;
        if (isApart) {
            Pin(memoryPeer.Pid(), placement.server);
        }
        const VdTransportStatistics before = StatisticsOf(connection);
        for (int round = 0; round < kRounds; ++round) {
            const Cost ping = Measure(
                bareServer.Pid(), [&sockets] { Ping(sockets.client.Get(), kGetStateExchange); });
            const Cost call = Measure(service.Pid(), [&connection] { GetState(connection); });
            const Cost bound = Measure(service.Pid(), [&connection] {
                const zam_connector::CallDeadline within(kDeadline);
                GetState(connection);
            });
            if (isApart) {
                memoryPeer.Begin(kWarmUpCalls + kCalls);
                memoryPings.push_back(
                    Measure(memoryPeer.Pid(), [&memoryPeer] { memoryPeer.Ping(); }).p50);
            }
            pings.push_back(ping.p50);
            boundCalls.push_back(bound.p50);
            pingCpu.push_back(ping.cpu);
            calls.push_back(call.p50);
            callCpu.push_back(call.cpu);
        }
        const std::string where = placement.name;
        report.Add(Compared("call.getstate", where + ".p50", "us", calls, pings));
        report.Add(Compared("call.getstate", where + ".cpu", "us", callCpu, pingCpu));
        report.Add({"call.getstate", where + ".memory_share", "%",
                    MemoryShare(before, StatisticsOf(connection))});
        if (isApart) {
            // The same calls, beside what two sides need that wait awake.
            report.Add(Compared("call.getstate", where + ".memory", "us", calls, memoryPings));
        }
        // The floor is the call without one.
        report.Add(Compared("call.deadline", where + ".p50", "us", boundCalls, calls));
    }
    Pin(0, -1);
}

}  // namespace zam_bench
