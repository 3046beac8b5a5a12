#pragma once

#include <atomic>
#include <iosfwd>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "zor/logger.h"

namespace zam_connector::testing {

/// One log record, with copies of everything that it was made of.
struct LogRecord {
    int level = 0;
    std::string file;
    int line = 0;
    std::string function;
    std::string text;
};

/// Equal in all five members.
bool operator==(const LogRecord& left, const LogRecord& right);
bool operator!=(const LogRecord& left, const LogRecord& right);

/// Prints "4 file:12 Function: text", for the messages of failed checks.
std::ostream& operator<<(std::ostream& out, const LogRecord& record);

/// What a `RecordingLogger` does wrong on purpose.
enum class LoggerFault {
    None,
    IsEnabledThrows,
    LogImplThrows,
};

/// A logger that keeps its records. It is the root logger from its construction to its destruction,
/// which puts the one before it back; loggers that overlap must therefore be destroyed in reverse
/// order, and no thread may still log when one is destroyed. Thread-safe otherwise.
class RecordingLogger final : public zor::logger::ZORLogger {
public:
    /// Levels from `threshold` upwards are enabled; by default all that the library uses.
    explicit RecordingLogger(int threshold = zor::logger::kLevelTrace) noexcept;
    ~RecordingLogger() override;

    /// True when the threshold is less than or equal to `level`; counted. Throws
    /// `std::runtime_error` when told to.
    bool IsEnabled(int level) const override;

    /// Keeps the record, whatever its level. Throws `std::runtime_error`, with nothing kept, when
    /// told to.
    void LogImpl(int level, const char* file, int line, const char* function,
                 std::string_view text) override;

    void SetThreshold(int threshold) noexcept { threshold_ = threshold; }

    /// Makes the calls that follow throw. The library ends the process then: for death tests.
    void SetFault(LoggerFault fault) noexcept { fault_ = fault; }

    /// The records so far, oldest first.
    std::vector<LogRecord> Records() const;

    /// How often `IsEnabled` was asked, the calls that threw included.
    int IsEnabledCalls() const noexcept { return isEnabledCalls_; }

    /// Forgets the records and the count; threshold and fault stay.
    void Clear();

private:
    std::atomic<int> threshold_;
    std::atomic<LoggerFault> fault_{LoggerFault::None};
    mutable std::atomic<int> isEnabledCalls_{0};
    mutable std::mutex mutex_;  // guards records_; a leaf, nothing is called under it
    std::vector<LogRecord> records_;
    zor::logger::ZORLogger* previous_;
};

}  // namespace zam_connector::testing
