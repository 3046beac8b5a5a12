#pragma once

#include <atomic>
#include <string_view>

#include "qel/export.h"

namespace zor::logger {

/// Levels grow with severity. The library writes level 4 for failures and level 3 for retried
/// failures and for information from its notification threads.
inline constexpr int kLevelTrace = 0;
inline constexpr int kLevelDebug = 1;
inline constexpr int kLevelInformation = 2;
inline constexpr int kLevelWarning = 3;
inline constexpr int kLevelError = 4;

/// Where log records go. An implementation must be usable from any number of threads at once. A
/// throw out of `IsEnabled` or `LogImpl` ends the process: logging paths are not allowed to throw.
class ZAM_API ZORLogger {
public:
    ZORLogger() = default;
    ZORLogger(const ZORLogger&) = delete;
    ZORLogger& operator=(const ZORLogger&) = delete;
    virtual ~ZORLogger();

    /// Asked before a record's text is formatted.
    virtual bool IsEnabled(int level) const = 0;

    /// Takes one record. `file` is the stem of the source file; no argument outlives the call.
    virtual void LogImpl(int level, const char* file, int line, const char* function,
                         std::string_view text) = 0;

    /// The logger that all records of the process go to: the default one until another is
    /// installed. Thread-safe, does not block.
    static ZORLogger& RootLogger() noexcept;

    /// Makes `logger` the root logger, null the default one, and returns the one before (null for
    /// the default). `logger` is not owned and must outlive every thread that may still log, since
    /// a record that is being written is not waited for. Thread-safe.
    static ZORLogger* InstallRootLogger(ZORLogger* logger) noexcept;
};

/// Longest text of a record, in bytes, that the default logger writes; the rest is left out.
inline constexpr std::size_t kMaxLogTextBytes = 16384;

/// The default logger: one line per record on stderr, for levels at or above a threshold. Texts can
/// hold what a peer sent, so control characters, bytes that are no UTF-8 and whatever else a
/// terminal acts upon are written as `\xNN` or `\u{NNNN}`, and long texts are cut.
///
/// Of records that are equal in everything one a second is written; the last 32 are remembered. A
/// line that cannot be written, because stderr is closed, full or gone, is dropped. Either is
/// counted, and the count is written in front of the next line that goes through, or at the end of
/// the process. A record waits at most 50 ms for room and for other threads; nothing waits again
/// until a line has gone through. What stderr is, is looked at anew for each line, so that a `dup2`
/// over it is followed at once. No signal is raised, and nothing is thrown. Memory is taken to
/// remember lines only; where there is none, they are not.
class ZAM_API DefaultLoggerImpl final : public ZORLogger {
public:
    explicit DefaultLoggerImpl(int threshold) noexcept;
    ~DefaultLoggerImpl() override;

    /// True when the threshold is less than or equal to `level`.
    bool IsEnabled(int level) const override;
    void LogImpl(int level, const char* file, int line, const char* function,
                 std::string_view text) override;

    int Threshold() const noexcept { return threshold_.load(std::memory_order_relaxed); }
    void SetThreshold(int threshold) noexcept {
        threshold_.store(threshold, std::memory_order_relaxed);
    }

    /// The one in use while no other logger is installed; it is never destroyed. Its threshold is
    /// the decimal number in the environment variable `ZAM_LOG_LEVEL`, and 4 when that is unset or
    /// no number.
    static DefaultLoggerImpl& Instance() noexcept;

private:
    std::atomic<int> threshold_;
};

}  // namespace zor::logger
