#pragma once

#include "report.h"

namespace zam_bench {

/// Each suite measures the rows of one name and throws `std::exception` when it cannot.
void MeasureGetState(Report& report);      ///< `call.getstate`, `call.deadline`
void MeasureChannels(Report& report);      ///< `call.channel`
void MeasureIdleness(Report& report);      ///< `call.idle`
void MeasureEightClients(Report& report);  ///< `call.clients8`
void MeasureAllocations(Report& report);   ///< `call.allocations`
void MeasureTrees(Report& report);         ///< `tree.*`, `peer.*` but the next
void MeasurePulls(Report& report);         ///< `pull.policy`, `peer.grpc.pull`
void MeasurePushes(Report& report);        ///< `push.settings`
void MeasureNotices(Report& report);       ///< `notice.latency`
void MeasureFanout(Report& report);        ///< `notice.fanout1000`
void MeasureQueues(Report& report);        ///< `queue.throughput`
void MeasureCreation(Report& report);      ///< `create.connector`
void MeasureFiles(Report& report);         ///< `file.stream`, `file.get`
void MeasureFairness(Report& report);      ///< `fair.*`
void MeasureLoads(Report& report);         ///< `data.load`
void MeasureStarts(Report& report);        ///< `start.process`
void MeasureRetries(Report& report);       ///< `retry.away`
void MeasureLibrarySize(Report& report);   ///< `size.library`

}  // namespace zam_bench
