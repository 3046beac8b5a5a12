#pragma once

#include <sys/types.h>

#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <vector>

#include "qor/mutex.h"

namespace zam_platform {

/// A few threads for what may block: writing to disk, hashing, parsing. Jobs of one lane run one
/// after the other in the order posted; lanes run side by side.
class WorkerPool {
public:
    /// `limit` bounds the jobs that are queued or running. Those of one user may be a quarter of
    /// them, at least one.
    WorkerPool(std::size_t threads, std::size_t lanes, std::size_t limit);
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Finishes every job that was posted.
    ~WorkerPool();

    /// False, with nothing queued, when the limit is reached or `Finish` has been called. A job
    /// must not throw. From any thread.
    bool Post(std::size_t lane, std::function<void()> job);

    /// The same for a user's client: false too when that user's share is taken.
    bool Post(std::size_t lane, uid_t user, std::function<void()> job);

    /// Blocks until every job posted before has run; takes no more from the moment it is called.
    void Finish();

private:
    /// Takes a user's place; false when there is none left.
    bool TakePlace(uid_t user);
    void ReturnPlace(uid_t user);

    const std::size_t limit_;
    qor::Mutex mutex_;
    std::map<uid_t, std::size_t> ofUsers_ QOR_GUARDED_BY(mutex_);
    std::atomic<std::size_t> jobs_{0};
    std::atomic<bool> isFinished_{false};
    asio::thread_pool pool_;
    std::vector<asio::strand<asio::thread_pool::executor_type>> lanes_;
};

}  // namespace zam_platform
