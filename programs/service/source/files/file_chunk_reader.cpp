#include "files/file_chunk_reader.h"

#include <fcntl.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <span>

#include "checksums/crc32.h"
#include "result_codes.h"
#include "zam_platform/posix_error.h"

namespace zam_service {
namespace {

using zam_connector::kMaxFileChunkBytes;

/// How often a file that changes under the reader is read; one that changes without pause must not
/// hold up the others.
constexpr int kAttempts = 4;

/// Reads up to `size` bytes, fewer at the end of the file and, without waiting, where the kernel
/// does not have them. Empty when nothing comes without waiting.
std::optional<std::uint32_t> ReadAt(const OpenFile& file, std::uint64_t offset,
                                    unsigned char* bytes, std::uint32_t size, DiskWait wait) {
    std::uint32_t have = 0;
    while (have < size) {
        const iovec part{.iov_base = bytes + have, .iov_len = size - have};
        const ssize_t got =
            ::preadv2(file.descriptor.Get(), &part, 1, static_cast<off_t>(offset + have),
                      wait == DiskWait::No ? RWF_NOWAIT : 0);
        if (got > 0) {
            have += static_cast<std::uint32_t>(got);
        } else if (got == 0) {
            break;
        } else if (wait == DiskWait::No && errno != EINTR) {
            // EAGAIN, or a file system that cannot read so. Any other failure comes again.
            return std::nullopt;
        } else if (errno != EINTR) {
            throw FileError(kMediaError, zam_platform::PosixError(file.path, errno).what());
        }
    }
    return have;
}

}  // namespace

std::uint32_t ChunkSizeOf(const zam_connector::FileChunkParams& params) noexcept {
    return params.maxSizeBytes == 0 ? kMaxFileChunkBytes
                                    : std::min(params.maxSizeBytes, kMaxFileChunkBytes);
}

std::optional<ChunkHead> ReadChunk(const OpenFile& file,
                                   const zam_connector::FileChunkParams& params,
                                   unsigned char* bytes, DiskWait wait) {
    ChunkHead head;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        head.stamp = StampOf(file);
        if (params.offset > head.stamp.sizeBytes) {
            head.code = kInvalidIndex;
            return head;
        }
        const auto wanted = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(ChunkSizeOf(params), head.stamp.sizeBytes - params.offset));
        const auto got = ReadAt(file, params.offset, bytes, wanted, wait);
        if (!got) {
            return std::nullopt;
        }
        if (*got == wanted && StampOf(file) == head.stamp) {
            head.sizeBytes = wanted;
            head.crc32 = zam_checksums::Crc32(std::as_bytes(std::span(bytes, wanted)));
            return head;
        }
    }
    head.code = kNotReady;
    return head;
}

}  // namespace zam_service
