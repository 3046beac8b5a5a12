#pragma once

#include <cstddef>

namespace zam_service {

/// Lanes of the worker pool. Jobs of one lane run in the order posted, which the settings rely on:
/// what is written and what is read back stay in one order. The uploads rely on it too: what was
/// closed last stands in the end.
enum Lane : std::size_t {
    kReadLane,
    kTreeLane,
    kSettingsLane,
    kHistoryLane,
    kUploadLane,
    kFileLane,
    kHashLane,
    kSecondHashLane,
    kLaneCount,
};

/// Workers, so that large trees and a slow disk under one lane do not hold up the others.
inline constexpr std::size_t kWorkerThreads = 4;

/// Most jobs queued or running; a client whose job does not fit is told "Insufficient resources".
inline constexpr std::size_t kMaxJobs = 256;

}  // namespace zam_service
