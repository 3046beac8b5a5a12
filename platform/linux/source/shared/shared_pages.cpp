#include "shared/shared_pages.h"

#include <cstring>

namespace zam_platform {
namespace {

constexpr std::size_t kWordBytes = sizeof(SharedWord);

}  // namespace

std::size_t WriteSlot(SharedWord* slot, std::size_t offset, const void* from,
                      std::size_t bytes) noexcept {
    const auto* in = static_cast<const unsigned char*>(from);
    std::size_t index = offset / kWordBytes;
    for (; bytes >= kWordBytes; bytes -= kWordBytes, in += kWordBytes) {
        std::uint64_t word = 0;
        std::memcpy(&word, in, kWordBytes);
        slot[index++].store(word, std::memory_order_relaxed);
    }
    if (bytes != 0) {
        std::uint64_t word = 0;
        std::memcpy(&word, in, bytes);
        slot[index++].store(word, std::memory_order_relaxed);
    }
    return index * kWordBytes;
}

std::size_t ReadSlot(const SharedWord* slot, std::size_t offset, void* to,
                     std::size_t bytes) noexcept {
    auto* out = static_cast<unsigned char*>(to);
    std::size_t index = offset / kWordBytes;
    for (; bytes >= kWordBytes; bytes -= kWordBytes, out += kWordBytes) {
        const std::uint64_t word = slot[index++].load(std::memory_order_relaxed);
        std::memcpy(out, &word, kWordBytes);
    }
    if (bytes != 0) {
        const std::uint64_t word = slot[index++].load(std::memory_order_relaxed);
        std::memcpy(out, &word, bytes);
    }
    return index * kWordBytes;
}

}  // namespace zam_platform
