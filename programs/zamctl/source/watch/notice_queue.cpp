#include "watch/notice_queue.h"

#include <utility>

namespace zamctl {

void NoticeQueue::Push(Notice notice) {
    // Before the wait for room, which is no part of the notice's own time.
    notice.received = clock_.Now();
    notice.receivedAtWall = clock_.WallNow();
    {
        std::unique_lock lock(mutex_);
        room_.wait(lock, [this] { return isClosed_ || notices_.size() < kCapacity; });
        if (isClosed_) {
            return;
        }
        notices_.push_back(std::move(notice));
    }
    clock_.Wake();
}

std::optional<Notice> NoticeQueue::Pop() {
    const std::lock_guard lock(mutex_);
    if (notices_.empty()) {
        return std::nullopt;
    }
    std::optional<Notice> notice = std::move(notices_.front());
    notices_.pop_front();
    room_.notify_one();
    return notice;
}

void NoticeQueue::Close() {
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    room_.notify_all();
}

}  // namespace zamctl
