#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "exchanges.h"
#include "param_list.h"
#include "policy_tree.h"
#include "service.h"
#include "subject.h"
#include "suites.h"

namespace zam_bench {
namespace {

constexpr Size kSize{"100k", 100'000, 1};

Work PushWork(const zuv::TValue& tree) {
    const auto connection = std::make_shared<zam_connector::test::RealConnection>();
    const auto settings = std::make_shared<zam_connector::ZamProductSettings>();
    settings->tree = tree;
    return {[connection, settings] {
                unsigned long hash = 0;
                if (connection->ProductDataHolder().SetSettings(*settings, hash) != 0) {
                    throw std::runtime_error("SetSettings failed");
                }
            },
            [] {}};
}

}  // namespace

void MeasurePushes(Report& report) {
    KeepHeap();
    const zuv::TValue tree = MakePolicyTree(kSize.nodes);
    const Exchanges exchanges = PushExchanges(Flatten(tree));
    const Service service;
    SocketPair sockets = MakeSocketPair();
    const Child bareServer([&] {
        sockets.client.Reset();
        ServeExchanges(sockets.server.Get(), exchanges);
    });
    sockets.server.Reset();
    ExchangeClient bareClient(exchanges);
    ParamList list;

    std::vector<std::unique_ptr<Subject>> subjects;
    subjects.push_back(
        std::make_unique<Subject>("push.settings", kSize, [&] { return PushWork(tree); }));
    subjects.push_back(std::make_unique<Subject>("bare transfer", kSize, [&] {
        return Work{[&] { bareClient.Run(sockets.client.Get()); }, [] {}};
    }));
    subjects.push_back(std::make_unique<Subject>("serialize", kSize, [&] {
        return Work{[&] { list = Flatten(tree); }, [&list] { list = {}; }};
    }));
    const std::vector<double> medians = MeasureInTurns(subjects);
    report.Add({"push.settings", kSize.name, "ns/node", medians[0], medians[1] + medians[2]});
}

}  // namespace zam_bench
