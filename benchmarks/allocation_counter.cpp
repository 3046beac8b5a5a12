#include "allocation_counter.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>

// The C library's own entry points; the definitions below take the place of the public names for
// the whole process.
extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
void __libc_free(void* block);
}

namespace {

std::atomic<bool> g_isWatching{false};
std::atomic<std::uint64_t> g_count{0};
std::atomic<std::ptrdiff_t> g_bytes{0};
std::atomic<std::ptrdiff_t> g_peak{0};

bool IsWatching() noexcept {
    return g_isWatching.load(std::memory_order_relaxed);
}

void* Allocated(void* block) noexcept {
    if (IsWatching() && block != nullptr) {
        g_count.fetch_add(1, std::memory_order_relaxed);
        const auto size = static_cast<std::ptrdiff_t>(malloc_usable_size(block));
        const std::ptrdiff_t bytes = g_bytes.fetch_add(size) + size;
        std::ptrdiff_t peak = g_peak.load();
        while (bytes > peak && !g_peak.compare_exchange_weak(peak, bytes)) {
        }
    }
    return block;
}

void Freed(void* block) noexcept {
    if (IsWatching() && block != nullptr) {
        g_bytes.fetch_sub(static_cast<std::ptrdiff_t>(malloc_usable_size(block)));
    }
}

}  // namespace

extern "C" {

void* malloc(std::size_t bytes) {
    return Allocated(__libc_malloc(bytes));
}

void* calloc(std::size_t count, std::size_t bytes) {
    return Allocated(__libc_calloc(count, bytes));
}

void* realloc(void* block, std::size_t bytes) {
    Freed(block);
    return Allocated(__libc_realloc(block, bytes));
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes) {
    return Allocated(__libc_memalign(alignment, bytes));
}

int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) {
    *block = Allocated(__libc_memalign(alignment, bytes));
    return *block == nullptr ? ENOMEM : 0;
}

void free(void* block) {
    Freed(block);
    __libc_free(block);
}

}  // extern "C"

namespace zam_bench {

AllocationWatch::AllocationWatch() noexcept {
    g_count = 0;
    g_bytes = 0;
    g_peak = 0;
    g_isWatching = true;
}

AllocationWatch::~AllocationWatch() {
    g_isWatching = false;
}

std::uint64_t AllocationWatch::Count() const noexcept {
    return g_count;
}

std::ptrdiff_t AllocationWatch::Bytes() const noexcept {
    return g_bytes;
}

std::ptrdiff_t AllocationWatch::PeakBytes() const noexcept {
    return g_peak;
}

}  // namespace zam_bench
