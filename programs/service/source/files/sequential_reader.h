#pragma once

#include <asio/io_context.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "files/file_chunk_reader.h"

namespace zam_service {

/// Reads chunks, and while a client takes one of a file that it fetches from front to back, the
/// next one already: that leaves little to do when it asks. Never waits for the disk. On the loop
/// thread only.
class SequentialReader {
public:
    /// `loop` is not owned; it must have run what is left on it before this object goes.
    explicit SequentialReader(asio::io_context& loop);

    /// As `ReadChunk`, with the bytes at `kChunkDataOffset` of `answer`, which has
    /// `kChunkAnswerBytes` and may be exchanged for another such.
    std::optional<ChunkHead> Read(const OpenFilePtr& file,
                                  const zam_connector::FileChunkParams& params,
                                  std::vector<unsigned char>& answer);

    /// Lets go of everything, for good.
    void Close();

    /// Chunks that were read when they were asked for.
    std::size_t Foreseen() const noexcept { return foreseen_; }

private:
    /// A stretch of a file, which it does not keep open.
    struct Place {
        std::weak_ptr<const OpenFile> file;
        std::uint64_t offset = 0;
        std::uint32_t sizeBytes = 0;

        bool Is(const OpenFilePtr& otherFile, std::uint64_t otherOffset,
                std::uint32_t otherSizeBytes) const noexcept {
            return file.lock() == otherFile && offset == otherOffset && sizeBytes == otherSizeBytes;
        }
    };

    void ReadNext();

    asio::io_context& loop_;
    Place next_;            ///< behind the last chunk that was read
    bool isReady_ = false;  ///< `next_` is read: to these two
    ChunkHead head_;
    std::vector<unsigned char> answer_;
    std::size_t foreseen_ = 0;
    bool isClosed_ = false;
};

}  // namespace zam_service
