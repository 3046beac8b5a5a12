#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace zam_platform {

/// CPUs that a control group may use at once, as its `cpu.max` says; none for as many as there are.
/// What can't be read is no bound.
std::optional<double> CpuQuota(std::string_view cpuMax) noexcept;

/// Whether the process may use two CPUs at once as far as its control groups go: with less, whoever
/// polls takes the time of whom it waits for. Looks at most every 2 s. Thread-safe; takes no
/// memory.
bool HasCpuForPolling(std::chrono::steady_clock::time_point now) noexcept;

}  // namespace zam_platform
