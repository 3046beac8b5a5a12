#include "files/open_files.h"

#include <algorithm>

namespace zam_service {

using Clock = std::chrono::steady_clock;

OpenFiles::OpenFiles(asio::io_context& loop, const FolderFiles& files,
                     std::chrono::milliseconds idleTime)
    : folder_(files), idleTime_(idleTime), idle_(loop, [this] { CloseIdle(); }) {}

OpenFilePtr OpenFiles::Find(const std::string& path) {
    const auto found = Of(path);
    if (found == files_.end()) {
        return nullptr;
    }
    if (!IsInPlace(folder_, *found->file)) {
        files_.erase(found);
        return nullptr;
    }
    found->used = Clock::now();
    files_.splice(files_.begin(), files_, found);
    return found->file;
}

void OpenFiles::Keep(const OpenFilePtr& file) {
    if (isClosed_) {
        return;
    }
    if (const auto found = Of(file->path); found != files_.end()) {
        files_.erase(found);
    }
    files_.push_front({.file = file, .used = Clock::now()});
    if (files_.size() > kMaxOpenFiles) {
        files_.pop_back();
    }
    AwaitIdle();
}

void OpenFiles::Drop(const OpenFilePtr& file) {
    files_.remove_if([&file](const Entry& entry) { return entry.file == file; });
}

void OpenFiles::Close() {
    isClosed_ = true;
    files_.clear();
    idle_.Cancel();
}

std::list<OpenFiles::Entry>::iterator OpenFiles::Of(const std::string& path) {
    return std::find_if(files_.begin(), files_.end(),
                        [&path](const Entry& entry) { return entry.file->path == path; });
}

void OpenFiles::CloseIdle() {
    const auto end = Clock::now() - idleTime_;
    files_.remove_if([end](const Entry& entry) { return entry.used <= end; });
    AwaitIdle();
}

void OpenFiles::AwaitIdle() noexcept {
    if (!idle_.IsSet() && !files_.empty()) {
        idle_.RingAfter(idleTime_);
    }
}

}  // namespace zam_service
