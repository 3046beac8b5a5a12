#include "zam_platform/server/service_log.h"

#include <unistd.h>
#include <asio/post.hpp>

#include <atomic>
#include <chrono>

#include "log/stderr_log.h"
#include "server/user_shares.h"
#include "zam_platform/server/alarm.h"
#include "zam_platform/server/handler_room.h"

namespace zam_platform {

/// What the loop may still hold when the log has gone.
class ServiceLog::Lines : public std::enable_shared_from_this<Lines> {
public:
    explicit Lines(asio::io_context& loop)
        : loop_(loop), alarm_(loop, [this] {
              isTimed_ = false;
              TellLeftOut(StderrLog::Patience::Never);
          }) {}

    void Write(const LogRecord& record) noexcept {
        const auto patience = LogContext::Here().mustNotWait ? StderrLog::Patience::Never
                                                             : StderrLog::Patience::Bounded;
        if (log_.Write(record, patience) && !isTimed_.exchange(true)) {
            asio::post(loop_, InRoom(room_, [self = shared_from_this()] {
                           self->alarm_.RingAfter(LogFolding::kSpan);
                       }));
        }
    }

    void TellLeftOut(StderrLog::Patience patience) noexcept { log_.TellLeftOut(patience); }

private:
    asio::io_context& loop_;
    HandlerRoom room_;
    Alarm alarm_;
    std::atomic<bool> isTimed_{false};  ///< the alarm is set, or is about to be
    UserShares shares_;
    StderrLog log_{STDERR_FILENO, &std::chrono::steady_clock::now, &shares_};
};

ServiceLog::ServiceLog(asio::io_context& loop)
    : lines_(std::make_shared<Lines>(loop)), before_(InstallRootLogger(this)) {}

ServiceLog::~ServiceLog() {
    InstallRootLogger(before_);
    lines_->TellLeftOut(StderrLog::Patience::Bounded);
}

bool ServiceLog::IsEnabled(int level) const {
    return zor::logger::DefaultLoggerImpl::Instance().IsEnabled(level);
}

void ServiceLog::LogImpl(int level, const char* file, int line, const char* function,
                         std::string_view text) {
    lines_->Write({.level = level, .file = file, .line = line, .function = function, .text = text});
}

void SayOnStderr(std::string_view text) noexcept {
    StderrOutput(STDERR_FILENO)
        .Write(text, std::chrono::steady_clock::now() + StderrLog::kLongestWait);
}

}  // namespace zam_platform
