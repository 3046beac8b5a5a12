#include <cstddef>
#include <thread>
#include <vector>

#include "ping_pong.h"
#include "process.h"
#include "service.h"
#include "suites.h"

namespace zam_bench {
namespace {

constexpr int kRounds = 7;
constexpr int kClients = 8;
constexpr int kCallsPerClient = 10'000;

/// Calls per second of clients that run at once, each in a process of its own. Every client
/// prepares, says so, and waits for the start.
template <typename Client>
double CallsPerSecond(const Client& client) {
    const SocketPair ready = MakeSocketPair();
    const SocketPair start = MakeSocketPair();
    std::vector<Child> children;
    children.reserve(kClients);
    constexpr Exchange kSignal{1, 0};
    constexpr Exchange kAwait{0, 1};
    for (int i = 0; i < kClients; ++i) {
        children.emplace_back([&, i] {
            client(i, [&] {
                Ping(ready.client.Get(), kSignal);
                Ping(start.client.Get(), kAwait);
            });
        });
    }
    for (int i = 0; i < kClients; ++i) {
        Ping(ready.server.Get(), kAwait);
    }
    const double before = NowMicroseconds();
    for (int i = 0; i < kClients; ++i) {
        Ping(start.server.Get(), kSignal);
    }
    for (Child& child : children) {
        child.Join();
    }
    const double seconds = (NowMicroseconds() - before) / 1e6;
    return kClients * kCallsPerClient / seconds;
}

double BareCallsPerSecond() {
    std::vector<SocketPair> sockets(kClients);
    for (SocketPair& pair : sockets) {
        pair = MakeSocketPair();
    }
    const Child server([&sockets] {
        std::vector<std::thread> threads;
        for (SocketPair& pair : sockets) {
            pair.client.Reset();
        }
        for (const SocketPair& pair : sockets) {
            threads.emplace_back([&pair] { ServePings(pair.server.Get(), kGetStateExchange); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    return CallsPerSecond([&sockets](int number, const auto& awaitStart) {
        const int socket = sockets[static_cast<std::size_t>(number)].client.Get();
        awaitStart();
        for (int i = 0; i < kCallsPerClient; ++i) {
            Ping(socket, kGetStateExchange);
        }
    });
}

/// With the clients shared out among the services.
double LibraryCallsPerSecond(const std::vector<const Service*>& services) {
    return CallsPerSecond([&services](int number, const auto& awaitStart) {
        services[static_cast<std::size_t>(number) % services.size()]->PointClients();
        zam_connector::test::RealConnection connection;
        GetState(connection);
        awaitStart();
        for (int i = 0; i < kCallsPerClient; ++i) {
            GetState(connection);
        }
    });
}

}  // namespace

void MeasureEightClients(Report& report) {
    const Service service;
    const Service other;
    std::vector<double> bare;
    std::vector<double> library;
    std::vector<double> halves;
    for (int round = 0; round < kRounds; ++round) {
        bare.push_back(BareCallsPerSecond());
        library.push_back(LibraryCallsPerSecond({&service}));
        halves.push_back(LibraryCallsPerSecond({&service, &other}));
    }
    report.Add({"call.clients8", "per_second", "calls/s", Median(library), Median(bare)});
    // More than two threads in one service could do that share nothing at all.
    report.Add({"call.clients8", "two_services", "calls/s", Median(halves), Median(library)});
}

}  // namespace zam_bench
