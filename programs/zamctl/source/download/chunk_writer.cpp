#include "download/chunk_writer.h"

#include <pthread.h>
#include <signal.h>

#include <utility>

namespace zamctl {

ChunkWriter::ChunkWriter(PartFile& file, zam_checksums::Sha256& hash)
    : file_(file), hash_(hash), thread_([this] { Work(); }) {}

ChunkWriter::~ChunkWriter() {
    End();
}

void ChunkWriter::Put(std::vector<std::byte> chunk) {
    file_.Append(chunk);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return chunks_.size() < kCapacity || failure_; });
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    chunks_.push_back(std::move(chunk));
    changed_.notify_all();
}

void ChunkWriter::Finish() {
    End();
    const std::lock_guard lock(mutex_);
    if (failure_) {
        std::rethrow_exception(failure_);
    }
}

void ChunkWriter::End() {
    {
        const std::lock_guard lock(mutex_);
        isEnded_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool ChunkWriter::Take(std::vector<std::byte>& chunk) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !chunks_.empty() || isEnded_; });
    if (chunks_.empty()) {
        return false;
    }
    chunk = std::move(chunks_.front());
    chunks_.pop_front();
    changed_.notify_all();
    return true;
}

void ChunkWriter::Work() noexcept {
    // An interrupt goes to the thread that prints and waits: nothing here could answer it.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    pthread_setname_np(pthread_self(), "zamctl_hasher");
    try {
        std::vector<std::byte> chunk;
        while (Take(chunk)) {
            hash_.Add(chunk);
        }
    } catch (...) {
        const std::lock_guard lock(mutex_);
        failure_ = std::current_exception();
        chunks_.clear();
        changed_.notify_all();
    }
}

}  // namespace zamctl
