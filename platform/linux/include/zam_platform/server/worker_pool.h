#pragma once

#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#include <atomic>
#include <cstddef>
#include <functional>
#include <vector>

namespace zam_platform {

/// A few threads for what may block: writing to disk, hashing, parsing. Jobs of one lane run one
/// after the other in the order posted; lanes run side by side.
class WorkerPool {
public:
    /// `limit` bounds the jobs that are queued or running.
    WorkerPool(std::size_t threads, std::size_t lanes, std::size_t limit);
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Finishes every job that was posted.
    ~WorkerPool();

    /// False, with nothing queued, when the limit is reached or `Finish` has been called. A job
    /// must not throw. From any thread.
    bool Post(std::size_t lane, std::function<void()> job);

    /// Blocks until every job posted before has run; takes no more from the moment it is called.
    void Finish();

private:
    const std::size_t limit_;
    std::atomic<std::size_t> jobs_{0};
    std::atomic<bool> isFinished_{false};
    asio::thread_pool pool_;
    std::vector<asio::strand<asio::thread_pool::executor_type>> lanes_;
};

}  // namespace zam_platform
