#pragma once

#include <cstdint>
#include <string>

#include "ping_pong.h"
#include "process.h"
#include "support/temporary_folder.h"
#include "vd/arena.h"

namespace zam_bench {

/// Request and answer of the one operation of `kComputingEndpoint`: the service computes for so
/// long.
struct ComputeMessage {
    vd_message_header header;
    std::uint64_t nanoseconds;
};

inline constexpr char kComputingService[] = "bench_computing";
inline constexpr char kComputingEndpoint[] = "bench.computing";

/// A process that serves that endpoint as the connector service serves its own: with the server
/// runtime, in a runtime directory of its own.
class ComputingService {
public:
    /// Returns when it takes calls.
    ComputingService();

    pid_t Pid() const noexcept { return child_.Pid(); }
    std::string Directory() const { return folder_.Path(); }

private:
    zam_test::TemporaryFolder folder_;
    SocketPair ready_;
    Child child_;
};

}  // namespace zam_bench
