#include "files/crc32.h"

#include <zlib.h>

namespace zam_service {

std::uint32_t Crc32(const unsigned char* bytes, std::size_t size) noexcept {
    return static_cast<std::uint32_t>(::crc32_z(0, bytes, size));
}

}  // namespace zam_service
