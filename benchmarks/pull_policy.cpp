#include <array>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "allocation_counter.h"
#include "common/raw_zam_param_casts.h"
#include "data/tree_snapshot.h"
#include "exchanges.h"
#include "param_list.h"
#include "peer_grpc.h"
#include "policy_tree.h"
#include "service.h"
#include "subject.h"
#include "suites.h"
#include "tree_json/tree_json.h"
#include "way.h"

namespace zam_bench {
namespace {

using zam_connector::test::RealConnection;

using Pieces = std::vector<std::vector<unsigned char>>;
using Policy = std::pair<unsigned long, zam_connector::ZamPolicy>;

constexpr Size kSmall{"10k", 10'000, 30};
constexpr Size kMiddle{"100k", 100'000, 4};
constexpr Size kLarge{"1m", 1'000'000, 1};

void GetPolicy(RealConnection& connection, Policy& policy) {
    if (connection.DataProvider().GetPolicy(policy) != 0) {
        throw std::runtime_error("GetPolicy failed");
    }
}

/// A policy, and all that it passes through on its way.
struct Transfer {
    explicit Transfer(std::size_t nodes)
        : tree(MakePolicyTree(nodes)),
          list(Flatten(tree)),
          pieces(zam_service::CutIntoPieces(list)),
          socketService(StartService(Way::Socket)),
          service(StartService(Way::Free)) {}

    std::unique_ptr<Service> StartService(Way way) const {
        const auto environment = Take(way);
        return std::make_unique<Service>(zam_connector::tree_json::Write(tree));
    }

    const zuv::TValue tree;
    const ParamList list;
    const Pieces pieces;
    const std::unique_ptr<Service> socketService;
    const std::unique_ptr<Service> service;
};

Work PullWork(const zuv::TValue& tree) {
    const auto connection = std::make_shared<RealConnection>();
    const auto policy = std::make_shared<Policy>();
    GetPolicy(*connection, *policy);
    if (policy->second.tree != tree) {
        throw std::runtime_error("the policy does not come as it is");
    }
    *policy = {};
    return {[connection, policy] { GetPolicy(*connection, *policy); }, [policy] { *policy = {}; }};
}

std::unique_ptr<Subject> PullSubject(const Size& size, const Transfer& transfer, Way way,
                                     int core = -1) {
    const auto environment = Take(way);
    (way == Way::Socket ? transfer.socketService : transfer.service)->PointClients();
    return std::make_unique<Subject>("pull.policy", size, [&transfer, core] {
        Pin(0, core);
        return PullWork(transfer.tree);
    });
}

/// ns per node.
struct Costs {
    double pull = 0;
    double grpc = 0;
};

/// The floor is the bytes over a bare socket, and the list made a tree.
Costs MeasureCosts(Report& report, const Size& size, const Transfer& transfer) {
    const Exchanges exchanges = PullExchanges(transfer.pieces);
    SocketPair sockets = MakeSocketPair();
    const Child bareServer([&] {
        sockets.client.Reset();
        ServeExchanges(sockets.server.Get(), exchanges);
    });
    sockets.server.Reset();
    ExchangeClient bareClient(exchanges);
    zuv::TValue copy;

    std::vector<std::unique_ptr<Subject>> subjects;
    const auto add = [&](const char* name, const std::function<Work()>& prepare) {
        subjects.push_back(std::make_unique<Subject>(name, size, prepare));
    };
    add("bare transfer", [&] {
        return Work{[&] { bareClient.Run(sockets.client.Get()); }, [] {}};
    });
    add("deserialize", [&] {
        return Work{[&] { copy = Rebuild(transfer.list); }, [&copy] { copy = {}; }};
    });
    subjects.push_back(PullSubject(size, transfer, Way::Socket));
    subjects.push_back(PullSubject(size, transfer, Way::Free));
#if ZAM_BENCH_GRPC
    const GrpcServer grpcServer(transfer.tree);
    if (size.nodes == kMiddle.nodes) {
        add("peer.grpc.pull", [&] { return GrpcPullWork(grpcServer); });
    }
#endif
    std::vector<Subject*> all;
    for (const auto& subject : subjects) {
        all.push_back(subject.get());
    }
    const auto rounds = RoundsInTurns(all);
    std::vector<double> floors = rounds[0];
    for (std::size_t round = 0; round < floors.size(); ++round) {
        floors[round] += rounds[1][round];
    }
    const std::string metric = size.name;
    report.Add(Compared("pull.policy", metric, "ns/node", rounds[3], floors));
    report.Add(Compared("pull.policy", metric + ".socket", "ns/node", rounds[3], rounds[2]));
    return {Median(rounds[3]), rounds.size() > 4 ? Median(rounds[4]) : 0};
}

/// The same calls with both sides held to cores, beside those over the socket.
void MeasurePinned(Report& report, const Size& size, const Transfer& transfer) {
    for (const Placement& placement : kPlacements) {
        const std::string metric = std::string(size.name) + "." + placement.name + ".socket";
        if (placement.client < 0 || !report.Wants("pull.policy." + metric)) {
            continue;
        }
        Pin(transfer.socketService->Pid(), placement.server);
        Pin(transfer.service->Pid(), placement.server);
        const auto socket = PullSubject(size, transfer, Way::Socket, placement.client);
        const auto free = PullSubject(size, transfer, Way::Free, placement.client);
        const auto rounds = RoundsInTurns({socket.get(), free.get()});
        report.Add(Compared("pull.policy", metric, "ns/node", rounds[1], rounds[0]));
    }
}

/// Heap of the list as the pieces fill it.
double ListBytes(const Pieces& pieces) {
    const AllocationWatch watch;
    ParamList list;
    for (const auto& piece : pieces) {
        // An arena is written to by its owner only; here it is read.
        vd_arena arena{};
        const auto size = static_cast<std::uint32_t>(piece.size());
        vd_arena_init(&arena, const_cast<unsigned char*>(piece.data()), size);
        arena.used = size;
        zam_connector::common::AppendFromVd({{0, size}}, &arena, list);
    }
    return static_cast<double>(watch.Bytes());
}

/// Heap that a pull needs at its peak beyond the list of what came and the tree.
double ExtraBytes(const Pieces& pieces) {
    RealConnection connection;
    Policy policy;
    const double listBytes = ListBytes(pieces);
    const AllocationWatch watch;
    GetPolicy(connection, policy);
    return static_cast<double>(watch.PeakBytes() - watch.Bytes()) - listBytes;
}

Costs MeasureSize(Report& report, const Size& size) {
    const Transfer transfer(size.nodes);
    const Costs costs = MeasureCosts(report, size, transfer);
    if (size.nodes == kMiddle.nodes) {
        MeasurePinned(report, size, transfer);
    }
    if (costs.grpc != 0) {
        report.Add({"peer.grpc.pull", size.name, "ns/node", costs.grpc, costs.pull});
    }
    if (size.nodes == kLarge.nodes) {
        const double extra = MeasureApart([&transfer] { return ExtraBytes(transfer.pieces); });
        report.Add({"pull.policy", "1m.extra_memory", "KiB", extra / 1024, {}});
    }
    return costs;
}

}  // namespace

void MeasurePulls(Report& report) {
    KeepHeap();
    if (!report.Wants("pull.policy")) {
        MeasureSize(report, kMiddle);
        return;
    }
    const auto isWanted = [&report](const std::string& metric) {
        return report.Wants("pull.policy." + metric);
    };
    const bool isGrowthWanted = isWanted("growth");
    Costs small;
    Costs large;
    if (isGrowthWanted || isWanted(kSmall.name)) {
        small = MeasureSize(report, kSmall);
    }
    if (isWanted(kMiddle.name) || report.Wants("peer.grpc.pull")) {
        MeasureSize(report, kMiddle);
    }
    if (isGrowthWanted || isWanted(kLarge.name)) {
        large = MeasureSize(report, kLarge);
    }
    if (isGrowthWanted) {
        report.Add({"pull.policy", "growth", "ns/node", large.pull, small.pull});
    }
}

}  // namespace zam_bench
