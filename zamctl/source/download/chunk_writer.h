#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <thread>
#include <vector>

#include "download/part_file.h"
#include "download/sha256.h"
#include "qor/mutex.h"

namespace zamctl {

/// Hashes and writes chunks on a thread of its own, while the next ones are fetched. One thread at
/// a time may call.
class ChunkWriter {
public:
    /// Chunks that wait: enough to even out a pause of the disk, and few to lose when the process
    /// is killed.
    static constexpr std::size_t kCapacity = 8;

    /// Starts the thread, which takes no signals. `file` and `hash` must outlive the object, and be
    /// left alone until `Finish` has returned.
    ChunkWriter(PartFile& file, Sha256& hash);
    ChunkWriter(const ChunkWriter&) = delete;
    ChunkWriter& operator=(const ChunkWriter&) = delete;

    /// Waits until what was put is written, unless writing failed.
    ~ChunkWriter();

    /// Waits for room. Throws what writing an earlier chunk threw.
    void Put(std::vector<std::byte> chunk);

    /// Waits until everything is written. Throws what writing threw.
    void Finish();

private:
    void Work() noexcept;
    bool Take(std::vector<std::byte>& chunk);
    void End();

    PartFile& file_;
    Sha256& hash_;
    qor::Mutex mutex_;  // a leaf
    std::condition_variable changed_;
    std::deque<std::vector<std::byte>> chunks_ QOR_GUARDED_BY(mutex_);
    bool isEnded_ QOR_GUARDED_BY(mutex_) = false;
    std::exception_ptr failure_ QOR_GUARDED_BY(mutex_);
    std::thread thread_;  // the last one: it uses the others
};

}  // namespace zamctl
