#pragma once

#include <chrono>

namespace zam_bench {

/// Computes for that long by the clock, whoever else takes the core meanwhile.
void Compute(std::chrono::nanoseconds time);

/// Computes until the process is ended.
[[noreturn]] void ComputeForever();

}  // namespace zam_bench
