#include "record_keeper.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

#include "printable.h"

namespace zamctl {
namespace {

constexpr const char* LevelName(int level) {
    switch (level) {
        case zor::logger::kLevelTrace:
            return "trace";
        case zor::logger::kLevelDebug:
            return "debug";
        case zor::logger::kLevelInformation:
            return "information";
        case zor::logger::kLevelWarning:
            return "warning";
        default:
            return "error";
    }
}

}  // namespace

RecordKeeper::RecordKeeper(std::ostream& err, int threshold)
    : err_(err),
      threshold_(std::min(threshold, zor::logger::kLevelWarning)),
      previous_(InstallRootLogger(this)) {}

RecordKeeper::~RecordKeeper() {
    InstallRootLogger(previous_);
}

bool RecordKeeper::IsEnabled(int level) const {
    return threshold_ <= level;
}

void RecordKeeper::LogImpl(int level, const char* file, int line, const char* function,
                           std::string_view text) {
    // The library's threads of notices log as well.
    const std::lock_guard lock(mutex_);
    if (verbose_) {
        err_ << fmt::format("[{}] {}:{} {}: {}\n", LevelName(level), file, line, function,
                            PrintableLine(text))
             << std::flush;
    }
    if (records_.size() == kMaxRecords) {
        records_.pop_front();
    }
    records_.push_back({level, std::string(text)});
}

void RecordKeeper::Clear() {
    const std::lock_guard lock(mutex_);
    records_.clear();
}

std::string RecordKeeper::Cause() const {
    const std::lock_guard lock(mutex_);
    const auto cause = std::find_if(records_.begin(), records_.end(), [](const Record& record) {
        return record.level >= zor::logger::kLevelWarning;
    });
    return cause == records_.end() ? std::string() : cause->text;
}

}  // namespace zamctl
