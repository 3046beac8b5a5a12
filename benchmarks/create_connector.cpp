#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bare_client.h"
#include "bare_service.h"
#include "process.h"
#include "service.h"
#include "suites.h"
#include "zam_connector/zam_connector.h"

namespace zam_bench {
namespace {

constexpr int kRounds = 9;
constexpr int kWarmUps = 50;
constexpr int kConnectors = 500;

void CreateConnector() {
    std::shared_ptr<zam_connector::IZamConnector> connector;
    if (zam_connector::CreateZamConnector(connector, {"bench"}) != 0 || connector == nullptr) {
        throw std::runtime_error("CreateZamConnector failed");
    }
}

template <typename Act>
double MedianTime(const Act& act) {
    for (int i = 0; i < kWarmUps; ++i) {
        act();
    }
    std::vector<double> times;
    for (int i = 0; i < kConnectors; ++i) {
        const double before = NowMicroseconds();
        act();
        times.push_back(NowMicroseconds() - before);
    }
    return Median(std::move(times));
}

}  // namespace

void MeasureCreation(Report& report) {
    const Service service;
    const BareService bare(service.SocketPath() + ".bare");
    for (const Placement& placement : kPlacements) {
        Pin(0, placement.client);
        Pin(service.Pid(), placement.server);
        Pin(bare.Pid(), placement.server);
        std::vector<double> connectors;
        std::vector<double> floors;
        for (int round = 0; round < kRounds; ++round) {
            floors.push_back(MedianTime([&bare] { ConnectTwiceAndLookUp(bare.Path(), 0); }));
            connectors.push_back(MedianTime(&CreateConnector));
        }
        report.Add({"create.connector", std::string(placement.name) + ".p50", "us",
                    Median(connectors), Median(floors)});
    }
    Pin(0, -1);
}

}  // namespace zam_bench
