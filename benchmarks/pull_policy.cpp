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
          service(zam_connector::tree_json::Write(tree)) {}

    const zuv::TValue tree;
    const ParamList list;
    const Pieces pieces;
    const Service service;
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

/// ns per node.
struct Costs {
    double pull = 0;
    double floor = 0;  ///< the bytes over a bare socket, and the list made a tree
    double grpc = 0;
};

Costs MeasureCosts(const Size& size, const Transfer& transfer) {
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
    add("pull.policy", [&] { return PullWork(transfer.tree); });
    add("bare transfer", [&] {
        return Work{[&] { bareClient.Run(sockets.client.Get()); }, [] {}};
    });
    add("deserialize", [&] {
        return Work{[&] { copy = Rebuild(transfer.list); }, [&copy] { copy = {}; }};
    });
#if ZAM_BENCH_GRPC
    const GrpcServer grpcServer(transfer.tree);
    if (size.nodes == kMiddle.nodes) {
        add("peer.grpc.pull", [&] { return GrpcPullWork(grpcServer); });
    }
#endif
    const std::vector<double> medians = MeasureInTurns(subjects);
    return {medians[0], medians[1] + medians[2], medians.size() > 3 ? medians[3] : 0};
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
    const Costs costs = MeasureCosts(size, transfer);
    report.Add({"pull.policy", size.name, "ns/node", costs.pull, costs.floor});
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
    const Costs small = MeasureSize(report, kSmall);
    MeasureSize(report, kMiddle);
    const Costs large = MeasureSize(report, kLarge);
    report.Add({"pull.policy", "growth", "ns/node", large.pull, small.pull});
}

}  // namespace zam_bench
