#include "allocation_counter.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

// The C library's own entry points; the definitions below take the place of the public names for
// the whole process.
extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
}

namespace {

std::atomic<std::uint64_t> g_count{0};

void Count() noexcept {
    g_count.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

extern "C" {

void* malloc(std::size_t bytes) {
    Count();
    return __libc_malloc(bytes);
}

void* calloc(std::size_t count, std::size_t bytes) {
    Count();
    return __libc_calloc(count, bytes);
}

void* realloc(void* block, std::size_t bytes) {
    Count();
    return __libc_realloc(block, bytes);
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes) {
    Count();
    return __libc_memalign(alignment, bytes);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) {
    Count();
    *block = __libc_memalign(alignment, bytes);
    return *block == nullptr ? ENOMEM : 0;
}

}  // extern "C"

namespace zam_bench {

std::uint64_t AllocationCount() noexcept {
    return g_count.load(std::memory_order_relaxed);
}

}  // namespace zam_bench
