#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zam_checksums {

/// The CRC-32 of bytes, as zlib and ISO 3309 have it. Thread-safe.
std::uint32_t Crc32(std::span<const std::byte> bytes) noexcept;

}  // namespace zam_checksums
