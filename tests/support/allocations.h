#pragma once

#include <atomic>
#include <cstddef>

/// The allocation functions of an executable that links `zam_test_allocations`: they count what
/// anything in the process takes through `new`, the libraries included, and fail when told to.
namespace zam_test {

/// Allocations so far.
extern std::atomic<int> g_allocations;

/// Allocations until one throws `std::bad_alloc`; none does while it is negative.
extern std::atomic<int> g_allocationsLeft;
/// Whether those behind the one that failed fail too.
extern std::atomic<bool> g_keepFailing;
/// Whether one failed.
extern std::atomic<bool> g_failed;

/// Whose allocations fail when told to: everybody's, only those of threads that are marked, or only
/// those of threads that are not. The others' are not counted down either.
enum class FailingThreads { All, Marked, Unmarked };
extern std::atomic<FailingThreads> g_failingThreads;
extern thread_local bool g_isMarkedThread;

/// Called with each block that was allocated and its size in bytes. Must allocate nothing.
extern std::atomic<void (*)(const void*, std::size_t)> g_onAllocate;

/// Called with each block that is about to be freed, when it is not null. Must allocate nothing.
extern std::atomic<void (*)(const void*)> g_onFree;

}  // namespace zam_test
