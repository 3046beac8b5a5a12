#include <stdexcept>
#include <string>

#include "allocation_counter.h"
#include "service.h"
#include "suites.h"

namespace zam_bench {
namespace {

constexpr int kWarmUpCalls = 10;
constexpr int kCalls = 200;

template <typename Call>
void Count(Report& report, const char* operation, const Call& call) {
    for (int i = 0; i < kWarmUpCalls; ++i) {
        call();
    }
    const AllocationWatch watch;
    for (int i = 0; i < kCalls; ++i) {
        call();
    }
    const double count = static_cast<double>(watch.Count()) / kCalls;
    report.Add({"call.allocations", operation, "per call", count, {}});
}

void CheckThatAllocationsAreCounted() {
    const AllocationWatch watch;
    const std::string text(1000, ' ');
    if (watch.Count() == 0 || watch.Bytes() < static_cast<std::ptrdiff_t>(text.size())) {
        throw std::runtime_error("allocations are not counted");
    }
}

void Require(int code) {
    if (code < 0) {
        throw std::runtime_error("a counted call failed");
    }
}

}  // namespace

void MeasureAllocations(Report& report) {
    CheckThatAllocationsAreCounted();
    const Service service;
    zam_connector::test::RealConnection connection;
    zam_connector::ZamConnectorSettings settings;
    Count(report, "Stop", [&] { Require(connection.Controller().Stop()); });
    Count(report, "GetState", [&] { GetState(connection); });
    Count(report, "Set", [&] { Require(connection.SettingsHolder().Set(settings)); });
    Count(report, "Get", [&] { Require(connection.SettingsHolder().Get(settings)); });
    Count(report, "ScheduleSync", [&] { Require(connection.CommandSender().ScheduleSync()); });
}

}  // namespace zam_bench
