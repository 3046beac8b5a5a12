#include "zam_platform/server/service_log.h"

#include <unistd.h>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <exception>

#include "log/stderr_log.h"
#include "server/user_shares.h"

namespace zam_platform {

/// What a timer that still waits may find when the log has gone.
class ServiceLog::Lines : public std::enable_shared_from_this<Lines> {
public:
    explicit Lines(asio::io_context& loop) : loop_(loop), timer_(loop) {}

    void Write(const LogRecord& record) noexcept {
        const auto patience = LogContext::Here().mustNotWait ? StderrLog::Patience::Never
                                                             : StderrLog::Patience::Bounded;
        if (log_.Write(record, patience) && !isTimed_.exchange(true)) {
            StartTimer();
        }
    }

    void TellLeftOut(StderrLog::Patience patience) noexcept { log_.TellLeftOut(patience); }

private:
    void StartTimer() noexcept {
        try {
            asio::post(loop_, [self = shared_from_this()] {
                self->timer_.expires_after(LogFolding::kSpan);
                self->timer_.async_wait([self](const std::error_code& error) {
                    if (!error) {
                        self->isTimed_ = false;
                        self->TellLeftOut(StderrLog::Patience::Never);
                    }
                });
            });
        } catch (const std::exception&) {
            // Without memory for the timer: the next line tells.
            isTimed_ = false;
        }
    }

    asio::io_context& loop_;
    asio::steady_timer timer_;
    std::atomic<bool> isTimed_{false};
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
