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
    Entry entry{{}, std::make_shared<std::atomic<bool>>(false), std::move(calls)};
    auto run = [turn = turn_, hasEnded = entry.hasEnded, token = std::move(token),
                rounds = std::move(rounds)]() mutable {
        isHandlerThread = true;
        if (turn->Take(*token)) {
            rounds();
            turn->Give();
        }
        // Before it counts as ended: a handler thread may be the one that joins it then, and must
        // not wait for the destructors of what the rounds hold.
        rounds = nullptr;
        *hasEnded = true;
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

void HandlerThreads::JoinEnded() {
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        if (*entry->hasEnded) {
            entry->thread.join();
            entry = entries_.erase(entry);
        } else {
            ++entry;
        }
    }
}

}  // namespace zam_connector::proxy
