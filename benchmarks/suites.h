#pragma once

#include "report.h"

namespace zam_bench {

/// Each suite measures the rows of one name and throws `std::exception` when it cannot.
void MeasureGetState(Report& report);      ///< `call.getstate`
void MeasureEightClients(Report& report);  ///< `call.clients8`
void MeasureAllocations(Report& report);   ///< `call.allocations`
void MeasureTrees(Report& report);         ///< `tree.*`, `peer.*`

}  // namespace zam_bench
