#pragma once

#include <cstddef>
#include <vector>

#include "call_cell.h"
#include "computing_client.h"
#include "computing_service.h"
#include "way.h"

namespace zam_bench {

/// What one round of a cell has shown, in microseconds. The CPU time is that of both sides per
/// call, without the clients' thinking.
struct CallCost {
    double p50;
    double p99;
    double cpu;
};

/// The processes of a cell whose calls go one way: a service, and clients each with a connection of
/// its own.
class CallSides {
public:
    CallSides(const CallCell& cell, Way way);

    /// Makes calls, of all clients together, and gives the time from the first to the last in
    /// microseconds.
    double Run(std::size_t calls);

    /// Makes some calls that are not counted, and then `calls` that are.
    CallCost Round(std::size_t calls);

private:
    /// Starts them all; what they have measured.
    std::vector<CallTimes> Call(std::size_t calls);

    CallCell cell_;
    ComputingService service_;
    std::vector<ComputingClient> clients_;
};

}  // namespace zam_bench
