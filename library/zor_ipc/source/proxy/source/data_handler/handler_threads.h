#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <thread>

#include "call_canceller.h"
#include "call_scope.h"
#include "qor/mutex.h"
#include "qor/utils/cancellation_token.h"

namespace zam_connector::proxy {

/// The handler threads of one pipeline: the one of its present run, and those of earlier runs that
/// could not be joined.
///
/// Observers are called on handler threads, and they may stop pipelines and drop their last owner.
/// A handler thread must therefore never join one: not itself, and not another one either, which
/// may be about to join it. It leaves such threads here, to be joined from another thread later.
/// Until then a thread of an earlier run may still be inside an observer, so a new one waits until
/// that has ended: observers of one pipeline are never called by two threads at once.
///
/// `Start`, `EndCalls` and `Finish` are called by one thread at a time.
class HandlerThreads {
    class Progress;

public:
    /// Longest time that the library's own calls, those of threads that are to end, go on.
    static constexpr std::chrono::milliseconds kLongestCalls{750};

    /// What is left of that when an end has taken `spent` already: a call under way is not ended
    /// for that alone.
    static constexpr std::chrono::nanoseconds LeftForCalls(std::chrono::nanoseconds spent) {
        constexpr std::chrono::milliseconds kLeast{250};
        return std::max<std::chrono::nanoseconds>(kLeast, kLongestCalls - spent);
    }

    /// The calling thread is in an application's code while this object lives, and has all the time
    /// it takes: neither that nor the calls made in it are bounded by a `Finish`. Every scope of
    /// calls that the rounds have made must have ended. Does nothing on other threads than these.
    class InObserver {
    public:
        InObserver() noexcept;
        InObserver(const InObserver&) = delete;
        InObserver& operator=(const InObserver&) = delete;
        ~InObserver();

    private:
        Progress* const progress_;
    };

    /// `name` is that of each thread; it must have static storage. Throws `std::bad_alloc`.
    explicit HandlerThreads(const char* name) : name_(name) {}
    HandlerThreads(const HandlerThreads&) = delete;
    HandlerThreads& operator=(const HandlerThreads&) = delete;

    /// `Finish`; on a handler thread what cannot be joined is let go. The threads need nothing of
    /// this object.
    ~HandlerThreads();

    /// Whether the calling thread is a handler thread, of any pipeline.
    static bool IsCurrent() noexcept;

    /// Starts a thread that runs `rounds` when the threads of earlier runs have ended, and not at
    /// all when `token` is cancelled before. `rounds` must not throw, and is destroyed on that
    /// thread; the calls that it makes are under `calls`, which may be null, and those outside of
    /// observers under what `Finish` ends. Throws
    /// `std::system_error` and `std::bad_alloc`; nothing has been started then.
    void Start(std::shared_ptr<const qor::utils::CancellationToken> token,
               std::function<void()> rounds, std::shared_ptr<CallCanceller> calls = nullptr);

    /// Ends the calls of all threads, those of earlier runs included, but for the calling one's.
    void EndCalls() noexcept;

    /// To be called when the tokens of all threads are cancelled: joins them, or leaves them for
    /// later when this is a handler thread itself. When they have spent `longest` outside of
    /// observers, together, the calls of those that are left end, but for an observer's and for
    /// the close of a channel, which has `kCloseTimeout` from then on.
    void Finish(std::chrono::nanoseconds longest = kLongestCalls);

private:
    /// Where one thread is.
    class Progress {
    public:
        /// These five are called by the thread itself.
        void BeginRounds() noexcept;
        void EndRounds() noexcept;
        void BeginObserver() noexcept;
        void EndObserver() noexcept;
        void End() noexcept;

        bool HasEnded() const;

        /// Waits for the end, and takes the time that this was outside of observers off `left`.
        /// When nothing is left it ends the calls outside of observers, and waits no longer.
        void WaitForEnd(std::chrono::nanoseconds& left);

    private:
        void SetInObserver(bool isInObserver) noexcept;

        CallCanceller ownCalls_{CallCanceller::Closes::Allowed};
        std::optional<CallScope> ownScope_;  ///< while the rounds are outside of observers
        // Lock order: this mutex, then that of `ownCalls_`. Calls are ended under it, so that the
        // thread goes into no observer between the look at where it is and that.
        mutable qor::Mutex mutex_;
        std::condition_variable changed_;
        bool isInObserver_ QOR_GUARDED_BY(mutex_) = false;
        bool hasEnded_ QOR_GUARDED_BY(mutex_) =
            false;  ///< nothing is left but the thread's own end
    };

    /// Goes from thread to thread; who has it may call observers.
    class Turn {
    public:
        /// False when `token` was cancelled first.
        bool Take(const qor::utils::CancellationToken& token);
        void Give();
        /// Has those who wait look at their tokens.
        void Remind();

    private:
        qor::Mutex mutex_;
        std::condition_variable changed_;
        bool taken_ QOR_GUARDED_BY(mutex_) = false;
    };

    struct Entry {
        std::thread thread;
        std::shared_ptr<Progress> progress;
        std::shared_ptr<CallCanceller> calls;
    };

    void JoinEnded();

    static thread_local Progress* current_;  ///< of the calling thread's rounds

    const char* const name_;
    const std::shared_ptr<Turn> turn_ = std::make_shared<Turn>();
    std::list<Entry> entries_;
};

}  // namespace zam_connector::proxy
