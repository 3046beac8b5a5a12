#pragma once

#include <asio/io_context.hpp>
#include <memory>
#include <string_view>

#include "zam_platform/server/log_context.h"
#include "zor/logger.h"

namespace zam_platform {

/// The log of a program that serves many: the default logger's lines at its threshold, with what
/// `LogContext` says of their threads. A user's clients have 32 lines of failures and one more a
/// second; what was left out is told a second later, if no line has told it before. Thread-safe.
class ServiceLog final : public zor::logger::ZORLogger {
public:
    /// Becomes the root logger. `loop` has the timer; it must outlive the object, and be stopped
    /// before it goes, together with every thread that logs.
    explicit ServiceLog(asio::io_context& loop);

    /// Tells what is still to be told, and puts back the root logger that was there before.
    ~ServiceLog() override;

    bool IsEnabled(int level) const override;
    void LogImpl(int level, const char* file, int line, const char* function,
                 std::string_view text) override;

private:
    class Lines;

    std::shared_ptr<Lines> lines_;
    ZORLogger* before_;
};

/// Writes to stderr what is no record. `text` ends with a line feed; what stderr does not take
/// within 50 ms is dropped. Thread-safe.
void SayOnStderr(std::string_view text) noexcept;

}  // namespace zam_platform
