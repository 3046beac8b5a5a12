#include "zam_platform/server/worker_pool.h"

#include <algorithm>

namespace zam_platform {

WorkerPool::WorkerPool(std::size_t threads, std::size_t lanes, std::size_t limit)
    : limit_(limit), lanes_(lanes) {
    threads_.reserve(threads);
    try {
        for (std::size_t thread = 0; thread < threads; ++thread) {
            threads_.emplace_back([this] { Run(); });
        }
    } catch (...) {
        Join();
        throw;
    }
}

WorkerPool::~WorkerPool() {
    Join();
}

bool WorkerPool::Post(std::size_t lane, std::function<void()> job) {
    return Put({.lane = lane, .user = {}}, std::move(job));
}

bool WorkerPool::Post(std::size_t lane, uid_t user, std::function<void()> job) {
    return Put({.lane = lane, .user = user}, std::move(job));
}

bool WorkerPool::Put(const Place& place, std::function<void()> job) {
    const std::size_t share = std::max<std::size_t>(limit_ / 4, 1);
    std::unique_ptr<Job> made;
    const qor::MutexLock lock(mutex_);
    if (isFinished_ || (place.user && jobs_ >= limit_)) {
        return false;
    }
    try {
        made = std::make_unique<Job>();
        std::size_t* const ofUser = place.user ? &ofUsers_[*place.user] : nullptr;
        if (ofUser != nullptr && ++*ofUser > share) {
            --*ofUser;
            return false;
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    made->run = std::move(job);
    made->user = place.user;
    Lane& own = lanes_.at(place.lane);
    ++jobs_;
    Job* const last = made.get();
    (own.last == nullptr ? own.first : own.last->next) = std::move(made);
    const bool wasEmpty = own.last == nullptr;
    own.last = last;
    if (wasEmpty && !own.isRunning) {
        MakeReady(own);
    }
    return true;
}

void WorkerPool::ReturnPlace(uid_t user) {
    const auto found = ofUsers_.find(user);
    if (--found->second == 0) {
        ofUsers_.erase(found);
    }
}

void WorkerPool::Finish() {
    {
        const qor::MutexLock lock(mutex_);
        isFinished_ = true;
    }
    Join();
}

void WorkerPool::Run() {
    Lane* lane = nullptr;
    while (std::unique_ptr<Job> job = Take(lane)) {
        job->run();
        const std::optional<uid_t> user = job->user;
        job.reset();
        const qor::MutexLock lock(mutex_);
        --jobs_;
        if (user) {
            ReturnPlace(*user);
        }
        lane->isRunning = false;
        if (lane->first != nullptr) {
            MakeReady(*lane);
        }
        if (isEnding_ && jobs_ == 0) {
            changed_.notify_all();
        }
    }
}

std::unique_ptr<WorkerPool::Job> WorkerPool::Take(Lane*& lane) {
    qor::MutexLock lock(mutex_);
    while (firstReady_ == nullptr) {
        if (isEnding_ && jobs_ == 0) {
            return nullptr;
        }
        lock.Wait(changed_);
    }
    lane = std::exchange(firstReady_, firstReady_->nextReady);
    lane->nextReady = nullptr;
    if (firstReady_ == nullptr) {
        lastReady_ = nullptr;
    }
    lane->isRunning = true;
    std::unique_ptr<Job> job = std::move(lane->first);
    lane->first = std::move(job->next);
    if (lane->first == nullptr) {
        lane->last = nullptr;
    }
    return job;
}

void WorkerPool::MakeReady(Lane& lane) {
    (lastReady_ == nullptr ? firstReady_ : lastReady_->nextReady) = &lane;
    lastReady_ = &lane;
    changed_.notify_one();
}

void WorkerPool::Join() {
    {
        const qor::MutexLock lock(mutex_);
        isEnding_ = true;
        changed_.notify_all();
    }
    for (std::thread& thread : threads_) {
        thread.join();
    }
    threads_.clear();
}

}  // namespace zam_platform
