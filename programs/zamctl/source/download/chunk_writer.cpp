#include "download/chunk_writer.h"

#include <utility>

#include "qor/utils/worker_thread.h"

namespace zamctl {

ChunkWriter::ChunkWriter(PartFile& file, zam_checksums::Sha256& hash)
    : file_(file),
      hash_(hash),
      thread_(qor::utils::StartWorkerThread("zamctl_hasher", [this] { Work(); })) {}

ChunkWriter::~ChunkWriter() {
    End();
}

void ChunkWriter::Put(std::vector<std::byte> chunk) {
    file_.Append(chunk);
    qor::MutexLock lock(mutex_);
    while (chunks_.size() >= kCapacity && !failure_) {
        lock.Wait(changed_);
    }
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    chunks_.push_back(std::move(chunk));
    changed_.notify_all();
}

void ChunkWriter::Finish() {
    End();
    const qor::MutexLock lock(mutex_);
    if (failure_) {
        std::rethrow_exception(failure_);
    }
}

void ChunkWriter::End() {
    {
        const qor::MutexLock lock(mutex_);
        isEnded_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool ChunkWriter::Take(std::vector<std::byte>& chunk) {
    qor::MutexLock lock(mutex_);
    while (chunks_.empty() && !isEnded_) {
        lock.Wait(changed_);
    }
    if (chunks_.empty()) {
        return false;
    }
    chunk = std::move(chunks_.front());
    chunks_.pop_front();
    changed_.notify_all();
    return true;
}

void ChunkWriter::Work() noexcept {
    try {
        std::vector<std::byte> chunk;
        while (Take(chunk)) {
            hash_.Add(chunk);
        }
    } catch (...) {
        const qor::MutexLock lock(mutex_);
        failure_ = std::current_exception();
        chunks_.clear();
        changed_.notify_all();
    }
}

}  // namespace zamctl
