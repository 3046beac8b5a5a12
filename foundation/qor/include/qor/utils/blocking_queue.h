#pragma once

#include <condition_variable>
#include <cstddef>
#include <list>

#include "qor/mutex.h"

namespace qor::utils {

/// Values on their way from one thread to another; every one is kept, in the order of arrival.
/// Thread-safe. Waiters are woken after the mutex is released, so the queue must be owned by all
/// threads that use it (`std::shared_ptr`).
template <typename T>
class BlockingQueue {
public:
    BlockingQueue() = default;
    BlockingQueue(const BlockingQueue&) = delete;
    BlockingQueue& operator=(const BlockingQueue&) = delete;

    /// Appends a value; a closed queue drops it without a word. Throws `std::bad_alloc`, and has
    /// then changed nothing.
    void Push(T value) {
        if (!PushInSpare(value)) {
            std::list<T> element{value};  // allocated, and freed when not taken, outside the lock
            MutexLock lock(mutex_);
            if (!closed_) {
                values_.splice(values_.end(), element);
            }
        }
        notEmpty_.notify_all();
    }

    /// Appends all values to `out`. Blocks while the queue is empty and open; a closed queue gives
    /// at once what it still holds.
    void PopAll(std::list<T>& out) {
        MutexLock lock(mutex_);
        while (values_.empty() && !closed_) {
            lock.Wait(notEmpty_);
        }
        out.splice(out.end(), values_);
    }

    /// Takes the elements of values that were popped and are of no more use, for pushes to come:
    /// the heap is slow for what one thread allocates and another frees. Leaves `used` empty.
    void GiveBack(std::list<T>& used) {
        std::list<T> beyond;  // freed outside the lock
        MutexLock lock(mutex_);
        if (spares_.size() + used.size() <= kMostSpares) {
            spares_.splice(spares_.end(), used);
        } else {
            beyond.swap(used);
        }
    }

    /// What is in the queue stays there to be popped; nothing more comes in.
    void Close() {
        {
            MutexLock lock(mutex_);
            closed_ = true;
        }
        notEmpty_.notify_all();
    }

    bool IsClosed() const {
        MutexLock lock(mutex_);
        return closed_;
    }

private:
    static constexpr std::size_t kMostSpares = 4096;

    /// False when there is no spare element.
    bool PushInSpare(const T& value) {
        MutexLock lock(mutex_);
        if (closed_) {
            return true;
        }
        if (spares_.empty()) {
            return false;
        }
        spares_.front() = value;
        values_.splice(values_.end(), spares_, spares_.begin());
        return true;
    }

    mutable Mutex mutex_;
    std::condition_variable notEmpty_;
    std::condition_variable notFull_;  // reserved for a bound on the number of values
    bool closed_ QOR_GUARDED_BY(mutex_) = false;
    std::list<T> values_ QOR_GUARDED_BY(mutex_);
    std::list<T> spares_ QOR_GUARDED_BY(mutex_);
};

}  // namespace qor::utils
