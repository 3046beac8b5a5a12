#include <stdexcept>

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
    const std::uint64_t before = AllocationCount();
    for (int i = 0; i < kCalls; ++i) {
        call();
    }
    const double count = static_cast<double>(AllocationCount() - before) / kCalls;
    report.Add({"call.allocations", operation, "per call", count, {}});
}

void Require(int code) {
    if (code < 0) {
        throw std::runtime_error("a counted call failed");
    }
}

}  // namespace

void MeasureAllocations(Report& report) {
    const Service service;
    zam_connector::test::RealConnection connection;
    if (AllocationCount() == 0) {
        throw std::runtime_error("allocations are not counted");
    }
    zam_connector::ZamConnectorSettings settings;
    Count(report, "Stop", [&] { Require(connection.Controller().Stop()); });
    Count(report, "GetState", [&] { GetState(connection); });
    Count(report, "Set", [&] { Require(connection.SettingsHolder().Set(settings)); });
    Count(report, "Get", [&] { Require(connection.SettingsHolder().Get(settings)); });
    Count(report, "ScheduleSync", [&] { Require(connection.CommandSender().ScheduleSync()); });
}

}  // namespace zam_bench
