#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zam_connector {

/// Most bytes of a file that one chunk carries: an answer has room for 66560 bytes, of which 1024
/// are left to the version.
inline constexpr std::uint32_t kMaxFileChunkBytes = 65536;

/// Which stretch of a file to fetch. A value type.
struct FileChunkParams {
    std::string path;          ///< as in `FileInfoParams`
    std::uint64_t offset = 0;  ///< of the stretch's first byte in the file
    /// Most bytes wanted, up to `kMaxFileChunkBytes`; more counts as that, and 0 leaves the choice
    /// to the service.
    std::uint32_t maxSizeBytes = 0;
};

inline bool operator==(const FileChunkParams& left, const FileChunkParams& right) {
    return left.path == right.path && left.offset == right.offset &&
           left.maxSizeBytes == right.maxSizeBytes;
}
inline bool operator!=(const FileChunkParams& left, const FileChunkParams& right) {
    return !(left == right);
}

/// A stretch of a file. A value type. The library hands it on as it came: `crc32`, `offset` and
/// `version` are for the caller to compare.
struct FileChunk {
    std::uint32_t crc32 = 0;  ///< of `data`, as zlib and ISO 3309 have it
    /// Tag of the content that the stretch was taken from. Chunks with different versions belong to
    /// different contents of the file and must not be joined.
    std::string version;
    std::uint64_t offset = 0;          ///< of the first byte of `data` in the file
    std::uint64_t totalSizeBytes = 0;  ///< of the file
    std::vector<std::byte> data;       ///< empty at and behind the end of the file
};

inline bool operator==(const FileChunk& left, const FileChunk& right) {
    return left.crc32 == right.crc32 && left.version == right.version &&
           left.offset == right.offset && left.totalSizeBytes == right.totalSizeBytes &&
           left.data == right.data;
}
inline bool operator!=(const FileChunk& left, const FileChunk& right) {
    return !(left == right);
}

}  // namespace zam_connector
