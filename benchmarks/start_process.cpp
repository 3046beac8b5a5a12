#include <filesystem>
#include <string>
#include <vector>

#include "bare_service.h"
#include "process.h"
#include "service.h"
#include "suites.h"
#include "zam_connector_testing/service_folders.h"

namespace zam_bench {
namespace {

constexpr int kWarmUps = 5;
constexpr int kStarts = 101;
constexpr double kKibi = 1024.0;

double RunMilliseconds(const std::vector<std::string>& command) {
    const double before = NowMicroseconds();
    Run(command);
    return (NowMicroseconds() - before) / 1e3;
}

}  // namespace

void MeasureStarts(Report& report) {
    const Service service;
    const BareService bare(service.SocketPath() + ".bare");
    const std::vector<std::string> client = {ZAM_START_CLIENT};
    const std::vector<std::string> bareClient = {ZAM_START_BARE, bare.Path()};
    std::vector<double> clients;
    std::vector<double> bares;
    for (int start = -kWarmUps; start < kStarts; ++start) {
        const double bareTime = RunMilliseconds(bareClient);
        const double clientTime = RunMilliseconds(client);
        if (start >= 0) {
            bares.push_back(bareTime);
            clients.push_back(clientTime);
        }
    }
    const double clientTime = Median(clients);
    const double bareTime = Median(bares);
    report.Add({"start.process", "p50", "ms", clientTime, bareTime});
    report.Add({"start.process", "extra", "ms", clientTime - bareTime, {}});
}

void MeasureLibrarySize(Report& report) {
    const zam_connector::testing::ServiceFolders folder;
    const std::string stripped = folder.DataDirectory() + "/stripped.so";
    Run({"strip", "-o", stripped, ZAM_CLIENT_LIBRARY});
    report.Add({"size.library",
                "stripped",
                "KiB",
                static_cast<double>(std::filesystem::file_size(stripped)) / kKibi,
                {}});
}

}  // namespace zam_bench
