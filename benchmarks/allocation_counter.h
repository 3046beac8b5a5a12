#pragma once

#include <cstdint>

namespace zam_bench {

/// Heap allocations of this process so far: calls of malloc, calloc, realloc and the aligned
/// forms, operator new among them, from the program and from every shared library.
std::uint64_t AllocationCount() noexcept;

}  // namespace zam_bench
