#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/// Mutexes that clang's thread-safety analysis (-Wthread-safety) understands; the macros are its
/// attributes and nothing elsewhere.

#if defined(__clang__)
#define QOR_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define QOR_THREAD_ATTRIBUTE(attribute)
#endif

#define QOR_CAPABILITY(name) QOR_THREAD_ATTRIBUTE(capability(name))
#define QOR_SCOPED_CAPABILITY QOR_THREAD_ATTRIBUTE(scoped_lockable)
#define QOR_GUARDED_BY(mutex) QOR_THREAD_ATTRIBUTE(guarded_by(mutex))
#define QOR_REQUIRES(mutex) QOR_THREAD_ATTRIBUTE(requires_capability(mutex))
#define QOR_EXCLUDES(mutex) QOR_THREAD_ATTRIBUTE(locks_excluded(mutex))
#define QOR_ACQUIRE(...) QOR_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QOR_RELEASE(...) QOR_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define QOR_NO_THREAD_SAFETY_ANALYSIS QOR_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace qor {

/// A `std::mutex` with attributes.
class QOR_CAPABILITY("mutex") Mutex {
public:
    void lock() QOR_ACQUIRE() { mutex_.lock(); }
    void unlock() QOR_RELEASE() { mutex_.unlock(); }

private:
    friend class MutexLock;

    std::mutex mutex_;
};

/// Holds a mutex for its own lifetime.
class QOR_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) QOR_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
    ~MutexLock() QOR_RELEASE() = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    /// Releases the mutex while it waits; to be called in a loop that checks the condition.
    void Wait(std::condition_variable& condition) { condition.wait(lock_); }

    template <typename Clock, typename Duration>
    std::cv_status WaitUntil(std::condition_variable& condition,
                             const std::chrono::time_point<Clock, Duration>& deadline) {
        return condition.wait_until(lock_, deadline);
    }

private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace qor
