#include "handler_threads.h"

#include <utility>

#include "qor/utils/worker_thread.h"

namespace zam_connector::proxy {
namespace {

thread_local bool isHandlerThread = false;

}  // namespace

bool HandlerThreads::Turn::Take(const qor::utils::CancellationToken& token) {
    qor::MutexLock lock(mutex_);
    while (taken_ && token.IsContinued()) {
        lock.Wait(changed_);
    }
    if (!token.IsContinued()) {
        return false;
    }
    taken_ = true;
    return true;
}

void HandlerThreads::Turn::Give() {
    qor::MutexLock lock(mutex_);
    taken_ = false;
    changed_.notify_all();
}

void HandlerThreads::Turn::Remind() {
    // Under the lock: a token that was cancelled before it cannot fall between the look at it and
    // the wait.
    qor::MutexLock lock(mutex_);
    changed_.notify_all();
}

void HandlerThreads::Berth::Keep(const std::shared_ptr<const void>& object) {
    qor::MutexLock lock(mutex_);
    if (!ended_) {
        kept_.push_back(object);
    }
}

void HandlerThreads::Berth::End() {
    std::vector<std::shared_ptr<const void>> kept;
    qor::MutexLock lock(mutex_);
    kept.swap(kept_);  // goes after the lock
    ended_ = true;
}

bool HandlerThreads::Berth::HasEnded() const {
    qor::MutexLock lock(mutex_);
    return ended_;
}

HandlerThreads::~HandlerThreads() {
    Finish();
    for (Entry& entry : entries_) {
        entry.thread.detach();
    }
}

bool HandlerThreads::IsCurrent() noexcept {
    return isHandlerThread;
}

void HandlerThreads::Start(std::shared_ptr<const qor::utils::CancellationToken> token,
                           std::function<void()> rounds) {
    JoinEnded();
    Entry entry{{}, NewBerth()};
    auto run = [turn = turn_, berth = entry.berth, token = std::move(token),
                rounds = std::move(rounds)]() mutable {
        isHandlerThread = true;
        if (turn->Take(*token)) {
            rounds();
            turn->Give();
        }
        rounds = nullptr;  // what the berth keeps is kept for it
        berth->End();
    };
    entries_.push_back(std::move(entry));
    try {
        entries_.back().thread = qor::utils::StartWorkerThread(name_, std::move(run));
    } catch (...) {
        entries_.pop_back();
        throw;
    }
}

void HandlerThreads::Finish() {
    turn_->Remind();
    if (IsCurrent()) {
        return;
    }
    for (Entry& entry : entries_) {
        entry.thread.join();
    }
    entries_.clear();
}

void HandlerThreads::Keep(const std::shared_ptr<const void>& object) {
    qor::MutexLock lock(mutex_);
    kept_.emplace_back(object);
    for (const std::weak_ptr<Berth>& candidate : berths_) {
        if (const std::shared_ptr<Berth> berth = candidate.lock()) {
            berth->Keep(object);
        }
    }
}

std::shared_ptr<HandlerThreads::Berth> HandlerThreads::NewBerth() {
    auto berth = std::make_shared<Berth>();
    qor::MutexLock lock(mutex_);
    for (const std::weak_ptr<const void>& kept : kept_) {
        if (const std::shared_ptr<const void> object = kept.lock()) {
            berth->Keep(object);
        }
    }
    std::erase_if(berths_, [](const std::weak_ptr<Berth>& old) { return old.expired(); });
    berths_.emplace_back(berth);
    return berth;
}

void HandlerThreads::JoinEnded() {
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        if (entry->berth->HasEnded()) {
            entry->thread.join();
            entry = entries_.erase(entry);
        } else {
            ++entry;
        }
    }
}

}  // namespace zam_connector::proxy
