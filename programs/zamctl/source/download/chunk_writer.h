#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "checksums/sha256.h"
#include "download/part_file.h"

namespace zamctl {

/// Writes chunks, and hashes them on a thread of its own while the next ones are fetched. One
/// thread at a time may call.
class ChunkWriter {
public:
    /// Chunks that wait to be hashed: enough to even out what the threads get of the processor.
    static constexpr std::size_t kCapacity = 8;

    /// Starts the thread, which takes no signals. `file` and `hash` must outlive the object; the
    /// hash must be left alone until `Finish` has returned.
    ChunkWriter(PartFile& file, zam_checksums::Sha256& hash);
    ChunkWriter(const ChunkWriter&) = delete;
    ChunkWriter& operator=(const ChunkWriter&) = delete;

    /// Waits until what was put is hashed, unless that failed.
    ~ChunkWriter();

    /// Writes the chunk before it returns, so that a process which is killed then has no more to
    /// fetch again than the chunk it is about to ask for. Waits for room. Throws what writing
    /// threw, or hashing an earlier chunk.
    void Put(std::vector<std::byte> chunk);

    /// Waits until everything is hashed. Throws what hashing threw.
    void Finish();

private:
    void Work() noexcept;
    bool Take(std::vector<std::byte>& chunk);
    void End();

    PartFile& file_;
    zam_checksums::Sha256& hash_;
    std::mutex mutex_;  // guards what stands below; a leaf
    std::condition_variable changed_;
    std::deque<std::vector<std::byte>> chunks_;
    bool isEnded_ = false;
    std::exception_ptr failure_;
    std::thread thread_;  // the last one: it uses the others
};

}  // namespace zamctl
