#pragma once

#include <algorithm>
#include <condition_variable>
#include <list>

#include "qor/mutex.h"

namespace zam_connector::common {

/// Values on their way from one thread to another, each at most once while it waits: its place is
/// that of its first arrival. Thread-safe. Waiters are woken after the mutex is released, so the
/// queue must be owned by all threads that use it (`std::shared_ptr`).
///
/// Meant for few different values: a push looks at all that wait.
template <typename T>
class UniqueDataQueue {
public:
    UniqueDataQueue() = default;
    UniqueDataQueue(const UniqueDataQueue&) = delete;
    UniqueDataQueue& operator=(const UniqueDataQueue&) = delete;

    /// Appends a value that does not wait yet; a closed queue drops it without a word. Throws
    /// `std::bad_alloc`, and has then changed nothing.
    void Push(T value) {
        {
            qor::MutexLock lock(mutex_);
            if (!closed_ && std::find(values_.begin(), values_.end(), value) == values_.end()) {
                values_.push_back(value);
            }
        }
        notEmpty_.notify_all();
    }

    /// Appends all values to `out`. Blocks while the queue is empty and open; a closed queue gives
    /// at once what it still holds.
    void PopAll(std::list<T>& out) {
        qor::MutexLock lock(mutex_);
        while (values_.empty() && !closed_) {
            lock.Wait(notEmpty_);
        }
        out.splice(out.end(), values_);
    }

    /// What is in the queue stays there to be popped; nothing more comes in.
    void Close() {
        {
            qor::MutexLock lock(mutex_);
            closed_ = true;
        }
        notEmpty_.notify_all();
    }

    bool IsClosed() const {
        qor::MutexLock lock(mutex_);
        return closed_;
    }

private:
    std::list<T> values_ QOR_GUARDED_BY(mutex_);
    mutable qor::Mutex mutex_;
    std::condition_variable notEmpty_;
    bool closed_ QOR_GUARDED_BY(mutex_) = false;
};

}  // namespace zam_connector::common
