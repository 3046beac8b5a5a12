#pragma once

#include <cstddef>
#include <cstdint>

namespace zam_bench {

/// Watches the heap of this process while it lives: malloc, calloc, realloc, the aligned forms and
/// free, operators new and delete among them, from the program and from every shared library.
/// Without one, allocation costs what it always does. One at a time.
class AllocationWatch {
public:
    AllocationWatch() noexcept;
    AllocationWatch(const AllocationWatch&) = delete;
    AllocationWatch& operator=(const AllocationWatch&) = delete;
    ~AllocationWatch();

    /// Allocations so far.
    std::uint64_t Count() const noexcept;

    /// Bytes allocated and not freed since the watch began; blocks count with what they can hold.
    std::ptrdiff_t Bytes() const noexcept;

    /// The most that `Bytes` has been.
    std::ptrdiff_t PeakBytes() const noexcept;
};

}  // namespace zam_bench
