#include "files/sequential_reader.h"

#include <asio/post.hpp>
#include <utility>

namespace zam_service {

SequentialReader::SequentialReader(asio::io_context& loop)
    : loop_(loop), answer_(kChunkAnswerBytes) {}

std::optional<ChunkHead> SequentialReader::Read(const OpenFilePtr& file,
                                                const zam_connector::FileChunkParams& params,
                                                std::vector<unsigned char>& answer) {
    const std::uint32_t sizeBytes = ChunkSizeOf(params);
    // Several clients at once find nothing read ahead, and have nothing read in vain.
    const bool isNext = next_.Is(file, params.offset, sizeBytes);
    std::optional<ChunkHead> head;
    if (isNext && isReady_ && StampOf(*file) == head_.stamp) {
        head = head_;
        answer.swap(answer_);
        ++foreseen_;
    } else {
        head = ReadChunk(*file, params, answer.data() + kChunkDataOffset, DiskWait::No);
    }
    isReady_ = false;
    next_ = {file, params.offset + sizeBytes, sizeBytes};
    if (isNext && head && head->sizeBytes == sizeBytes && next_.offset < head->stamp.sizeBytes) {
        asio::post(loop_, [this] { ReadNext(); });
    }
    return head;
}

void SequentialReader::Close() {
    isClosed_ = true;
    isReady_ = false;
    next_ = {};
}

void SequentialReader::ReadNext() {
    const OpenFilePtr file = next_.file.lock();
    if (isClosed_ || isReady_ || file == nullptr) {
        return;
    }
    try {
        const auto head =
            ReadChunk(*file, {.path = {}, .offset = next_.offset, .maxSizeBytes = next_.sizeBytes},
                      answer_.data() + kChunkDataOffset, DiskWait::No);
        isReady_ = head && head->code == 0;
        head_ = head.value_or(ChunkHead());
    } catch (const FileError&) {
        // It comes again for whoever asks.
    }
}

}  // namespace zam_service
