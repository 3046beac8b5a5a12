#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "files/open_file.h"
#include "zam_connector/file_chunk.h"

namespace zam_service {

/// The arena of an answer with a chunk: the version, and behind it the data, which are aligned so.
inline constexpr std::uint32_t kChunkDataOffset = kVersionBytes;
inline constexpr std::size_t kChunkAnswerBytes =
    kChunkDataOffset + zam_connector::kMaxFileChunkBytes;

/// Most bytes of an answer: what the client leaves open, and what would not fit, is the most that
/// fits.
std::uint32_t ChunkSizeOf(const zam_connector::FileChunkParams& params) noexcept;

/// What was read of a file, but for the bytes.
struct ChunkHead {
    int code = 0;     ///< result code; with a failure there are no bytes
    FileStamp stamp;  ///< of the content that the bytes are of
    std::uint32_t sizeBytes = 0;
    std::uint32_t crc32 = 0;
};

/// Whether a function may wait for the disk.
enum class DiskWait { No, Yes };

/// Reads the stretch that `params` asks for to `bytes`, which has room for `kMaxFileChunkBytes`.
/// All of it is of one content: a file that changes meanwhile is read again, a few times. Without
/// waiting for the disk the result may be empty: try again where waiting is allowed. Throws
/// `FileError`. Thread-safe.
std::optional<ChunkHead> ReadChunk(const OpenFile& file,
                                   const zam_connector::FileChunkParams& params,
                                   unsigned char* bytes, DiskWait wait);

}  // namespace zam_service
