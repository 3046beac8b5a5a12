#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <optional>
#include <utility>

#include "data_handler/handler_threads.h"
#include "qor/mutex.h"
#include "vd/call_bounds.h"

namespace zam_connector::proxy {

/// Lets one thread at a time start and stop a pipeline. A thread of the application waits for its
/// turn. A handler thread, which may be inside an observer whose end the present holder is waiting
/// for, never does: it leaves its task to the holder. Thread-safe.
///
/// The gate's mutex is a leaf; none is held while a task runs.
template <typename Task>
class TaskGate {
public:
    /// Runs `run(task)`, then `runLeft` for each task that handler threads have left meanwhile, in
    /// their order. Returns what `run` returned, and 0 when the task was left to another thread.
    /// What `run` throws goes through when all is done; `runLeft` must not throw.
    template <typename Run, typename RunLeft>
    int Pass(Task task, Run&& run, RunLeft&& runLeft) {
        if (!Enter(task)) {
            return 0;
        }
        int result = 0;
        std::exception_ptr thrown;
        try {
            result = run(std::as_const(task));
        } catch (...) {
            thrown = std::current_exception();
        }
        // What the transport comes to in the others' tasks is nothing of this thread's operation.
        const std::int32_t status = *VdZorTransport_LastStatus();
        while (const std::optional<Task> left = NextOrLeave()) {
            runLeft(*left);
        }
        *VdZorTransport_LastStatus() = status;
        if (thrown) {
            std::rethrow_exception(thrown);
        }
        return result;
    }

private:
    bool Enter(const Task& task) {
        qor::MutexLock lock(mutex_);
        if (held_ && HandlerThreads::IsCurrent()) {
            left_.push_back(task);
            return false;
        }
        while (held_) {
            lock.Wait(free_);
        }
        held_ = true;
        return true;
    }

    std::optional<Task> NextOrLeave() {
        qor::MutexLock lock(mutex_);
        if (left_.empty()) {
            held_ = false;
            free_.notify_one();
            return std::nullopt;
        }
        const Task next = left_.front();
        left_.pop_front();
        return next;
    }

    qor::Mutex mutex_;
    std::condition_variable free_;
    bool held_ QOR_GUARDED_BY(mutex_) = false;
    std::deque<Task> left_ QOR_GUARDED_BY(mutex_);
};

}  // namespace zam_connector::proxy
