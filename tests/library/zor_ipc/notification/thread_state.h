#pragma once

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>

#include "support/eventually.h"

namespace zam_connector::test {

using zam_test::kBound;

/// Something that happens once. Thread-safe.
class Flag {
public:
    void Raise() {
        // Under the lock, so that who waits may destroy the flag.
        const std::lock_guard<std::mutex> lock(mutex_);
        raised_ = true;
        changed_.notify_all();
    }

    bool IsRaised() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return raised_;
    }

    /// False when the time ran out.
    bool Wait() const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, kBound, [this] { return raised_; });
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool raised_ = false;
};

/// The kernel's number of the calling thread.
inline pid_t ThreadNumber() {
    return static_cast<pid_t>(::syscall(SYS_gettid));
}

/// What the kernel tells of a thread of this process.
struct ThreadState {
    std::string name;
    std::uint64_t blockedSignals = 0;  ///< bit N - 1 is signal N
    char state = '?';                  ///< 'S': it sleeps until something happens

    static ThreadState Of(pid_t thread) {
        ThreadState result;
        std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
        for (std::string line; std::getline(status, line);) {
            std::istringstream words(line);
            std::string key;
            words >> key;
            if (key == "Name:") {
                words >> result.name;
            } else if (key == "State:") {
                words >> result.state;
            } else if (key == "SigBlk:") {
                words >> std::hex >> result.blockedSignals;
            }
        }
        return result;
    }

    bool Blocks(int signal) const { return (blockedSignals >> (signal - 1) & 1) != 0; }
};

/// While it lives the process can start no thread: no address space holds the stack.
class NoMoreThreads {
public:
    NoMoreThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t tooMuch;
        pthread_getattr_default_np(&tooMuch);
        pthread_attr_setstacksize(&tooMuch, std::size_t{1} << 60);
        pthread_setattr_default_np(&tooMuch);
        pthread_attr_destroy(&tooMuch);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;
    ~NoMoreThreads() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }

private:
    pthread_attr_t before_{};
};

/// Waits until the thread has given its number and sleeps: there is nothing left that it could do
/// by itself. False when the time ran out.
inline bool WaitUntilAsleep(const std::atomic<pid_t>& thread) {
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    while (std::chrono::steady_clock::now() < deadline) {
        if (thread != 0 && ThreadState::Of(thread).state == 'S') {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

/// Waits until the thread has given its number and ended. False when the time ran out.
inline bool WaitUntilGone(const std::atomic<pid_t>& thread) {
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    while (std::chrono::steady_clock::now() < deadline) {
        if (thread != 0 && ThreadState::Of(thread).state == '?') {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

}  // namespace zam_connector::test
