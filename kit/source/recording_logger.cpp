#include "zam_connector_testing/recording_logger.h"

#include <ostream>
#include <stdexcept>
#include <tuple>

namespace zam_connector::testing {

bool operator==(const LogRecord& left, const LogRecord& right) {
    return std::tie(left.level, left.file, left.line, left.function, left.text) ==
           std::tie(right.level, right.file, right.line, right.function, right.text);
}

bool operator!=(const LogRecord& left, const LogRecord& right) {
    return !(left == right);
}

std::ostream& operator<<(std::ostream& out, const LogRecord& record) {
    return out << record.level << ' ' << record.file << ':' << record.line << ' ' << record.function
               << ": " << record.text;
}

RecordingLogger::RecordingLogger(int threshold) noexcept
    : threshold_(threshold), previous_(InstallRootLogger(this)) {}

RecordingLogger::~RecordingLogger() {
    InstallRootLogger(previous_);
}

bool RecordingLogger::IsEnabled(int level) const {
    ++isEnabledCalls_;
    if (fault_ == LoggerFault::IsEnabledThrows) {
        throw std::runtime_error("RecordingLogger: IsEnabled was told to throw");
    }
    return threshold_ <= level;
}

void RecordingLogger::LogImpl(int level, const char* file, int line, const char* function,
                              std::string_view text) {
    if (fault_ == LoggerFault::LogImplThrows) {
        throw std::runtime_error("RecordingLogger: LogImpl was told to throw");
    }
    const std::lock_guard lock(mutex_);
    records_.push_back({level, file, line, function, std::string(text)});
}

std::vector<LogRecord> RecordingLogger::Records() const {
    const std::lock_guard lock(mutex_);
    return records_;
}

void RecordingLogger::Clear() {
    const std::lock_guard lock(mutex_);
    records_.clear();
    isEnabledCalls_ = 0;
}

}  // namespace zam_connector::testing
