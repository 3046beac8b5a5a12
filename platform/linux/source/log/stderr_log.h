#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "log/log_folding.h"
#include "log/log_line.h"
#include "log/stderr_output.h"
#include "log/timed_lock.h"

namespace zam_platform {

/// Which lines may still be written, for a log that has many authors.
class LogShare {
public:
    LogShare() = default;
    LogShare(const LogShare&) = delete;
    LogShare& operator=(const LogShare&) = delete;
    virtual ~LogShare() = default;

    /// Takes one line out of the share of whoever is at work on this thread; false when it is used
    /// up. Called under the log's lock, so that one thread is in it at a time.
    virtual bool Take(std::chrono::steady_clock::time_point now) noexcept = 0;
};

/// Lines on stderr. A line that cannot be written is dropped, one that says again what was just
/// said is left out (`LogFolding`), and both are counted: the next line that goes through stands
/// behind one that tells how many. Allocates nothing but to remember lines. Thread-safe.
class StderrLog {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Clock = Time (*)() noexcept;

    /// Longest wait for the lock and for room together.
    static constexpr std::chrono::milliseconds kLongestWait{50};

    /// How long a line may wait. `Never` is for threads that others depend on: it waits for no
    /// reader, and for the lock only for as long as a thread takes that does not wait for one.
    enum class Patience { Bounded, Never };

    /// `share` limits failures only, may be null, and is else kept.
    explicit StderrLog(int descriptor, Clock clock = &std::chrono::steady_clock::now,
                       LogShare* share = nullptr) noexcept
        : output_(descriptor), clock_(clock), share_(share) {}

    /// Writes a record, or counts it as left out. True when something is left out that has not been
    /// told.
    bool Write(const LogRecord& record, Patience patience) noexcept;

    /// Tells what was left out, if anything was.
    void TellLeftOut(Patience patience) noexcept;

    /// For `fork`: whoever has the lock when a process is copied would keep it in the copy for
    /// ever.
    void LockForFork() noexcept;
    void UnlockAfterFork() noexcept { lock_.Unlock(); }
    /// What was left out until then is the parent's to tell.
    void UnlockInChild() noexcept;

private:
    /// Room in front of a line: the end of a torn one, one that tells what was left out, its head.
    static constexpr std::size_t kFrontBytes = 512;

    bool Lock(Patience patience) noexcept;
    bool HasLeftOut() const noexcept;
    void ForgetLeftOut(std::uint64_t lost) noexcept;
    bool IsLeftOut(int level, std::string_view body) noexcept;
    bool Put(std::size_t bodyBytes, Time end) noexcept;
    void PutLeftOut(BoundedText& out, const timespec& time, std::uint64_t lost) const noexcept;

    TimedLock lock_;
    StderrOutput output_;
    LogFolding folding_;
    Clock clock_;
    LogShare* share_;
    std::uint64_t repeated_ = 0;
    std::uint64_t beyondShare_ = 0;
    std::atomic<std::uint64_t> lost_{0};  ///< counted without the lock too
    /// The line that is being made, under the lock. Too large for a stack, and not initialised, so
    /// that what no line needs is never touched.
    std::array<char, kFrontBytes + kMaxLogBodyBytes + 1> buffer_;
};

}  // namespace zam_platform
