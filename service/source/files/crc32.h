#pragma once

#include <cstddef>
#include <cstdint>

namespace zam_service {

/// The CRC-32 of `size` bytes, as zlib and ISO 3309 have it. Thread-safe.
std::uint32_t Crc32(const unsigned char* bytes, std::size_t size) noexcept;

}  // namespace zam_service
