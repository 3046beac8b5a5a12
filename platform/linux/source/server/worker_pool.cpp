#include "zam_platform/server/worker_pool.h"

#include <algorithm>
#include <asio/post.hpp>
#include <utility>

namespace zam_platform {

WorkerPool::WorkerPool(std::size_t threads, std::size_t lanes, std::size_t limit)
    : limit_(limit), pool_(threads) {
    for (std::size_t lane = 0; lane < lanes; ++lane) {
        lanes_.emplace_back(pool_.get_executor());
    }
}

WorkerPool::~WorkerPool() {
    pool_.join();
}

bool WorkerPool::Post(std::size_t lane, std::function<void()> job) {
    // A pool that was joined would keep the job, and what it holds, without ever running it.
    if (isFinished_.load(std::memory_order_acquire)) {
        return false;
    }
    if (jobs_.fetch_add(1, std::memory_order_relaxed) >= limit_) {
        jobs_.fetch_sub(1, std::memory_order_relaxed);
        return false;
    }
    asio::post(lanes_.at(lane), [this, job = std::move(job)] {
        job();
        jobs_.fetch_sub(1, std::memory_order_relaxed);
    });
    return true;
}

bool WorkerPool::Post(std::size_t lane, uid_t user, std::function<void()> job) {
    if (!TakePlace(user)) {
        return false;
    }
    const bool posted = Post(lane, [this, user, job = std::move(job)] {
        job();
        ReturnPlace(user);
    });
    if (!posted) {
        ReturnPlace(user);
    }
    return posted;
}

bool WorkerPool::TakePlace(uid_t user) {
    const qor::MutexLock lock(mutex_);
    std::size_t& taken = ofUsers_[user];
    if (taken >= std::max<std::size_t>(limit_ / 4, 1)) {
        return false;
    }
    ++taken;
    return true;
}

void WorkerPool::ReturnPlace(uid_t user) {
    const qor::MutexLock lock(mutex_);
    const auto found = ofUsers_.find(user);
    if (--found->second == 0) {
        ofUsers_.erase(found);
    }
}

void WorkerPool::Finish() {
    isFinished_.store(true, std::memory_order_release);
    pool_.join();
}

}  // namespace zam_platform
