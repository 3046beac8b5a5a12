#include "handler_threads.h"

#include <utility>

#include "qor/utils/worker_thread.h"

namespace zam_connector::proxy {
namespace {

thread_local bool isHandlerThread = false;

}  // namespace

thread_local HandlerThreads::Progress* HandlerThreads::current_ = nullptr;

HandlerThreads::InObserver::InObserver() noexcept : progress_(current_) {
    if (progress_ != nullptr) {
        progress_->BeginObserver();
    }
}

HandlerThreads::InObserver::~InObserver() {
    if (progress_ != nullptr) {
        progress_->EndObserver();
    }
}

void HandlerThreads::Progress::BeginRounds() noexcept {
    ownScope_.emplace(CallScope::Bounds{.canceller = &ownCalls_});
}

void HandlerThreads::Progress::EndRounds() noexcept {
    ownScope_.reset();
}

void HandlerThreads::Progress::BeginObserver() noexcept {
    ownScope_.reset();
    SetInObserver(true);
}

void HandlerThreads::Progress::EndObserver() noexcept {
    SetInObserver(false);
    BeginRounds();
}

void HandlerThreads::Progress::SetInObserver(bool isInObserver) noexcept {
    const qor::MutexLock lock(mutex_);
    isInObserver_ = isInObserver;
    changed_.notify_all();
}

void HandlerThreads::Progress::End() noexcept {
    const qor::MutexLock lock(mutex_);
    hasEnded_ = true;
    changed_.notify_all();
}

bool HandlerThreads::Progress::HasEnded() const {
    const qor::MutexLock lock(mutex_);
    return hasEnded_;
}

void HandlerThreads::Progress::WaitForEnd(std::chrono::nanoseconds& left) {
    using std::chrono::steady_clock;
    qor::MutexLock lock(mutex_);
    while (!hasEnded_) {
        if (isInObserver_) {
            lock.Wait(changed_);
            continue;
        }
        if (left <= left.zero()) {
            ownCalls_.Cancel();
            return;
        }
        const steady_clock::time_point begin = steady_clock::now();
        lock.WaitUntil(changed_, begin + left);
        left -= steady_clock::now() - begin;
    }
}

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

HandlerThreads::~HandlerThreads() {
    Finish();
    for (Entry& entry : entries_) {
        entry.thread.detach();  // this thread is one of them, or one that must not wait for them
    }
}

bool HandlerThreads::IsCurrent() noexcept {
    return isHandlerThread;
}

void HandlerThreads::Start(std::shared_ptr<const qor::utils::CancellationToken> token,
                           std::function<void()> rounds, std::shared_ptr<CallCanceller> calls) {
    JoinEnded();
    Entry entry{{}, std::make_shared<Progress>(), std::move(calls)};
    auto run = [turn = turn_, progress = entry.progress, calls = entry.calls,
                token = std::move(token), rounds = std::move(rounds)]() mutable {
        isHandlerThread = true;
        if (turn->Take(*token)) {
            const LibraryThreadScope scope(calls.get());
            current_ = progress.get();
            progress->BeginRounds();
            rounds();
            progress->EndRounds();
            current_ = nullptr;
            turn->Give();
        }
        // Before it counts as ended: a handler thread may be the one that joins it then, and must
        // not wait for the destructors of what the rounds hold.
        rounds = nullptr;
        progress->End();
    };
    entries_.push_back(std::move(entry));
    try {
        entries_.back().thread = qor::utils::StartWorkerThread(name_, std::move(run));
    } catch (...) {
        entries_.pop_back();
        throw;
    }
}

void HandlerThreads::EndCalls() noexcept {
    for (const Entry& entry : entries_) {
        if (entry.calls && entry.thread.get_id() != std::this_thread::get_id()) {
            entry.calls->Cancel();
        }
    }
}

void HandlerThreads::Finish(std::chrono::nanoseconds longest) {
    turn_->Remind();
    if (IsCurrent()) {
        return;
    }
    for (Entry& entry : entries_) {
        entry.progress->WaitForEnd(longest);
        entry.thread.join();
    }
    entries_.clear();
}

void HandlerThreads::JoinEnded() {
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        if (entry->progress->HasEnded()) {
            entry->thread.join();
            entry = entries_.erase(entry);
        } else {
            ++entry;
        }
    }
}

}  // namespace zam_connector::proxy
