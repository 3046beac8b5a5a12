#include "checksums/crc32.h"

#include <zlib.h>

namespace zam_checksums {

std::uint32_t Crc32(std::span<const std::byte> bytes) noexcept {
    return static_cast<std::uint32_t>(
        ::crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

}  // namespace zam_checksums
