#include "notices/notice_queue.h"

#include <algorithm>

namespace zam_service {

bool NoticeQueue::Push(std::uint32_t value) {
    const bool isQueued = rules_.coalesces && std::any_of(notices_.begin(), notices_.end(),
                                                          [value](const Notice& notice) {
                                                              return notice.value == value;
                                                          });
    return isQueued || Insert({.number = ++lastNumber_, .value = value});
}

bool NoticeQueue::PutBack(const Notice& notice) {
    if (rules_.coalesces) {
        // What came meanwhile is told by this one too, and earlier.
        std::erase_if(notices_, [&notice](const Notice& queued) {
            return queued.value == notice.value && queued.number > notice.number;
        });
    }
    return Insert(notice);
}

std::optional<Notice> NoticeQueue::Oldest() const {
    return notices_.empty() ? std::nullopt : std::optional(notices_.front());
}

bool NoticeQueue::Insert(const Notice& notice) {
    const auto behind = std::upper_bound(
        notices_.begin(), notices_.end(), notice,
        [](const Notice& left, const Notice& right) { return left.number < right.number; });
    notices_.insert(behind, notice);
    if (notices_.size() <= rules_.maxQueued) {
        return true;
    }
    notices_.erase(notices_.begin());
    return false;
}

}  // namespace zam_service
