#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

#include "clock.h"
#include "watch/notice.h"

namespace zamctl {

/// Takes notices from the library's threads to the one that prints them. Thread-safe.
class NoticeQueue {
public:
    /// Notices held. When nothing more fits, observers wait: the library merges changes of data
    /// while they do, so that nothing grows without bound.
    static constexpr std::size_t kCapacity = 1024;

    /// `clock` is woken for each notice, and must outlive the object.
    explicit NoticeQueue(Clock& clock) : clock_(clock) {}

    /// Stamps a notice with the time and adds it. Waits for room. Does nothing once closed.
    void Push(Notice notice);

    /// The oldest notice; empty when there is none.
    std::optional<Notice> Pop();

    /// Lets go whoever waits; nothing is added any more.
    void Close();

private:
    Clock& clock_;
    std::mutex mutex_;  // guards what stands below; a leaf
    std::condition_variable room_;
    std::deque<Notice> notices_;
    bool isClosed_ = false;
};

}  // namespace zamctl
