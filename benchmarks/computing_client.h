#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "ping_pong.h"
#include "process.h"

namespace zam_bench {

struct CallOrder {
    std::size_t calls;
    std::chrono::nanoseconds think;    ///< before each call
    std::chrono::nanoseconds handler;  ///< what the service computes for it
};

struct CallTimes {
    std::vector<float> calls;  ///< microseconds, one for each
    double cpu = 0;            ///< microseconds of the client's, thinking taken off
};

/// A client of a computing service: a process with one connection, which calls when it is told to.
class ComputingClient {
public:
    /// Has made its first call when this returns.
    explicit ComputingClient(const std::string& runtimeDirectory);

    pid_t Pid() const noexcept { return child_.Pid(); }

    /// Starts calls; their times are to be awaited. Throws `std::runtime_error` when the process is
    /// gone, and so does the other.
    void Start(const CallOrder& order);
    CallTimes Await();

private:
    std::size_t started_ = 0;
    SocketPair sockets_;
    Child child_;
};

}  // namespace zam_bench
