#pragma once

#include "zam_connector/file_chunk.h"
#include "zam_connector/file_info.h"

namespace zam_connector {

/// Describes files of the management server and fetches them piece by piece.
///
/// Every operation blocks until the service has answered or cannot be reached, returns a result
/// code (`zam_connector/result_code.h`) and never throws. Thread-safe: any number of threads may
/// call at once.
///
/// 0x8000004B, with the output unchanged, stands for parameters that do not fit the message, a
/// service that could not be reached, and an answer that could not be read. Otherwise the output is
/// written and what the service answers is returned, also when that is a failure.
class IZamFileDownloader {
public:
    virtual ~IZamFileDownloader() = default;

    /// Stores the description of a file in `info`.
    virtual int GetFileInfo(FileInfoParams params, FileInfo& info) noexcept = 0;

    /// Stores a stretch of a file in `chunk`, which may be shorter than was asked for. The whole
    /// file has come when `offset` and the size of `data` come to `totalSizeBytes`.
    virtual int GetFileChunk(FileChunkParams params, FileChunk& chunk) noexcept = 0;
};

}  // namespace zam_connector
