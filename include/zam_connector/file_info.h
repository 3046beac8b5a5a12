#pragma once

#include <cstdint>
#include <string>

#include "qor/types/timestamp.h"

namespace zam_connector {

/// Which file of the management server to describe. A value type.
struct FileInfoParams {
    /// Path of the file below the server's folder for this product, with `/` between the levels and
    /// none in front; UTF-8, at most 1024 bytes.
    std::string path;
};

inline bool operator==(const FileInfoParams& left, const FileInfoParams& right) {
    return left.path == right.path;
}
inline bool operator!=(const FileInfoParams& left, const FileInfoParams& right) {
    return !(left == right);
}

/// A file's description. A value type.
struct FileInfo {
    std::string sha256;           ///< of the file's content, 64 lower-case hexadecimal digits
    std::uint64_t sizeBytes = 0;  ///< of the file
    qor::types::Timestamp modificationTime;  ///< count 0: unknown
    /// What the service recommends as `FileChunkParams::maxSizeBytes`; 0 leaves it to the caller.
    std::uint64_t chunkSizeBytes = 0;
};

inline bool operator==(const FileInfo& left, const FileInfo& right) {
    return left.sha256 == right.sha256 && left.sizeBytes == right.sizeBytes &&
           left.modificationTime == right.modificationTime &&
           left.chunkSizeBytes == right.chunkSizeBytes;
}
inline bool operator!=(const FileInfo& left, const FileInfo& right) {
    return !(left == right);
}

}  // namespace zam_connector
