#include "support/allocations.h"

#include <cstdlib>
#include <new>

namespace zam_test {

std::atomic<int> g_allocations{0};
std::atomic<int> g_allocationsLeft{-1};
std::atomic<bool> g_keepFailing{false};
std::atomic<bool> g_failed{false};
std::atomic<FailingThreads> g_failingThreads{FailingThreads::All};
thread_local bool g_isMarkedThread = false;
std::atomic<void (*)(const void*, std::size_t)> g_onAllocate{nullptr};
std::atomic<void (*)(const void*)> g_onFree{nullptr};

namespace {

bool MayFail() {
    return g_failingThreads == FailingThreads::All ||
           (g_failingThreads == FailingThreads::Marked) == g_isMarkedThread;
}

/// Counts down, whichever threads come at once. True when this allocation is to fail.
bool Fails() {
    int left = g_allocationsLeft;
    while (left > 0) {
        if (g_allocationsLeft.compare_exchange_weak(left, left - 1)) {
            return false;
        }
    }
    return left == 0 && (g_keepFailing || g_allocationsLeft.compare_exchange_strong(left, -1));
}

/// Counts one more, and tells whether it is to fail.
bool CountAndFail() noexcept {
    ++g_allocations;
    if (g_allocationsLeft >= 0 && MayFail() && Fails()) {
        g_failed = true;
        return true;
    }
    return false;
}

void* Allocation(std::size_t size) {
    if (CountAndFail()) {
        throw std::bad_alloc();
    }
    void* const bytes = std::malloc(size == 0 ? 1 : size);
    if (bytes == nullptr) {
        throw std::bad_alloc();
    }
    if (void (*const onAllocate)(const void*, std::size_t) = g_onAllocate) {
        onAllocate(bytes, size);
    }
    return bytes;
}

void Free(void* bytes) noexcept {
    if (void (*const onFree)(const void*) = g_onFree) {
        onFree(bytes);
    }
    std::free(bytes);
}

}  // namespace
}  // namespace zam_test

/// What Asio keeps handlers in. A sanitizer has its own.
#ifdef ZAM_TEST_ALIGNED_ALLOC
extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    void* bytes = nullptr;
    if (zam_test::CountAndFail() || ::posix_memalign(&bytes, alignment, size) != 0) {
        return nullptr;
    }
    return bytes;
}
#endif

void* operator new(std::size_t size) {
    return zam_test::Allocation(size);
}
void* operator new[](std::size_t size) {
    return zam_test::Allocation(size);
}
/// As the standard library has them; a sanitizer's own would go past the count.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    try {
        return zam_test::Allocation(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    try {
        return zam_test::Allocation(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* bytes) noexcept {
    zam_test::Free(bytes);
}
void operator delete[](void* bytes) noexcept {
    zam_test::Free(bytes);
}
void operator delete(void* bytes, std::size_t /*size*/) noexcept {
    zam_test::Free(bytes);
}
void operator delete[](void* bytes, std::size_t /*size*/) noexcept {
    zam_test::Free(bytes);
}
