#include "watch/notice_queue.h"

#include <utility>

namespace zamctl {

void NoticeQueue::Push(Notice notice) {
    notice.received = clock_.Now();
    notice.receivedAtWall = clock_.WallNow();
    {
        qor::MutexLock lock(mutex_);
        while (!isClosed_ && notices_.size() >= kCapacity) {
            lock.Wait(room_);
        }
        if (isClosed_) {
            return;
        }
        notices_.push_back(std::move(notice));
    }
    clock_.Wake();
}

std::optional<Notice> NoticeQueue::Pop() {
    const qor::MutexLock lock(mutex_);
    if (notices_.empty()) {
        return std::nullopt;
    }
    std::optional<Notice> notice = std::move(notices_.front());
    notices_.pop_front();
    room_.notify_one();
    return notice;
}

void NoticeQueue::Close() {
    const qor::MutexLock lock(mutex_);
    isClosed_ = true;
    room_.notify_all();
}

}  // namespace zamctl
