#include "checksums/crc32.h"

#include <libdeflate.h>

namespace zam_checksums {

std::uint32_t Crc32(std::span<const std::byte> bytes) noexcept {
    // By carry-less multiplication where the processor has it: with tables, the checksum would take
    // longer than all else that is done for a chunk.
    return ::libdeflate_crc32(0, bytes.data(), bytes.size());
}

}  // namespace zam_checksums
