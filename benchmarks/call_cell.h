#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "process.h"

namespace zam_bench {

/// One cell of the grid of `call.channel`: clients that compute for a while, call, and compute
/// again.
struct CallCell {
    Placement placement;
    std::chrono::microseconds think;    ///< between a client's calls
    std::chrono::microseconds handler;  ///< that the service computes for a call
    int busy;                           ///< processes beside that always compute
    int clients;

    /// "two.t35us.h0.b0.c1".
    std::string Name() const;
};

/// The whole grid. Clients that hardly ever call are measured alone.
std::vector<CallCell> AllCallCells();

}  // namespace zam_bench
