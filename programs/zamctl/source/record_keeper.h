#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <iosfwd>
#include <mutex>
#include <string>
#include <string_view>

#include "zor/logger.h"

namespace zamctl {

/// The process's logger: keeps the last records, so that a message can quote the cause of a failure
/// once, and prints them only when asked to. It is the root logger from its construction to its
/// destruction, when no other thread may still log. Thread-safe otherwise.
class RecordKeeper final : public zor::logger::ZORLogger {
public:
    /// Records kept; the oldest go first. One failed call leaves two or three.
    static constexpr std::size_t kMaxRecords = 16;

    /// Levels from `threshold` upwards are enabled; warnings and errors always are, since a service
    /// that is not there is reported as a warning. `err` must outlive the object.
    RecordKeeper(std::ostream& err, int threshold);
    RecordKeeper(const RecordKeeper&) = delete;
    RecordKeeper& operator=(const RecordKeeper&) = delete;
    ~RecordKeeper() override;

    bool IsEnabled(int level) const override;
    void LogImpl(int level, const char* file, int line, const char* function,
                 std::string_view text) override;

    /// Makes every record that is kept be printed as it comes.
    void SetVerbose(bool verbose) noexcept { verbose_ = verbose; }

    /// Forgets what was kept: to be called before what `Cause` shall explain.
    void Clear();

    /// The text of the oldest warning or error kept: the layer that met a failure logs it before
    /// the layers above log that they failed because of it. Empty when there is none.
    std::string Cause() const;

private:
    struct Record {
        int level;
        std::string text;
    };

    std::ostream& err_;
    const int threshold_;
    std::atomic<bool> verbose_{false};
    mutable std::mutex mutex_;  // guards records_ and writing to err_; a leaf
    std::deque<Record> records_;
    zor::logger::ZORLogger* previous_;
};

}  // namespace zamctl
