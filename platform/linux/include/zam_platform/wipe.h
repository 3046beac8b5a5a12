#pragma once

#include <string.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace zam_platform {

/// Overwrites what was secret, so that neither a core dump nor whoever gets the memory next finds
/// it. Thread-safe as the arguments are.
inline void Wipe(void* bytes, std::size_t size) noexcept {
    if (size != 0) {
        ::explicit_bzero(bytes, size);
    }
}

/// Wipes what it gives back.
template <typename T>
struct WipingAllocator {
    using value_type = T;

    WipingAllocator() noexcept = default;
    template <typename U>
    WipingAllocator(const WipingAllocator<U>& /*other*/) noexcept {}

    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* place, std::size_t count) noexcept {
        Wipe(place, count * sizeof(T));
        std::allocator<T>().deallocate(place, count);
    }

    friend bool operator==(const WipingAllocator& /*left*/,
                           const WipingAllocator& /*right*/) noexcept {
        return true;
    }
    friend bool operator!=(const WipingAllocator& /*left*/,
                           const WipingAllocator& /*right*/) noexcept {
        return false;
    }
};

/// Bytes that may hold something secret: nothing of them stays behind.
using WipedBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

}  // namespace zam_platform
