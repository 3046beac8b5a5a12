#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "files/open_file.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// Most hashes that are remembered.
inline constexpr std::size_t kMaxFileHashes = 4096;

/// A file whose last change is younger may change once more without its stamp telling: file systems
/// stamp by a clock that ticks every few milliseconds. Its hash is not remembered.
inline constexpr std::chrono::milliseconds kStampSettleTime{50};

/// The hash of a file's content.
struct HashedFile {
    int code = 0;  ///< result code; with a failure there is no hash
    FileStamp stamp;
    std::string sha256;  ///< 64 hexadecimal digits
};

/// SHA-256 of files, made on workers and remembered by stamp; whoever asks for a hash that is being
/// made waits for that one. On the loop thread only.
class FileHashes {
public:
    using Taker = std::function<void(const HashedFile& hashed)>;

    /// None of them is owned; all must outlive this object. The workers must have finished, and
    /// the loop have run what they left, before it goes.
    FileHashes(asio::io_context& loop, zam_platform::WorkerPool& workers,
               std::chrono::milliseconds settleTime = kStampSettleTime);

    /// Has `take` called once with the hash of the file's content, at once when it is known; `user`
    /// is whose client asks. Throws
    /// `FileError`, with `take` not called.
    void Ask(uid_t user, const OpenFilePtr& file, Taker take);

    /// Ends what is being made, and every later question, with "Operation cancelled".
    void Close() noexcept { isClosed_ = true; }

    /// How many files were hashed, and how many hashes are remembered.
    std::size_t Computed() const noexcept { return computed_; }
    std::size_t Remembered() const noexcept { return known_.size(); }

private:
    struct Outcome {
        HashedFile hashed;
        bool isSettled = false;
    };

    Outcome Compute(const OpenFile& file) const;
    void OnComputed(const FileStamp& asked, const Outcome& outcome);
    void Remember(const HashedFile& hashed);

    asio::io_context& loop_;
    zam_platform::WorkerPool& workers_;
    const std::chrono::milliseconds settleTime_;
    std::map<FileStamp, std::string> known_;
    std::deque<FileStamp> order_;  ///< of `known_`, oldest first
    std::map<FileStamp, std::vector<Taker>> waiting_;
    std::size_t computed_ = 0;
    std::atomic<bool> isClosed_{false};
};

}  // namespace zam_service
