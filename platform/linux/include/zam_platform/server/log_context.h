#pragma once

#include <sys/types.h>

#include <optional>
#include <utility>

/// What a service's log has to know of the thread that writes a record.

namespace zam_platform {

struct LogContext {
    bool mustNotWait = false;   ///< others depend on the thread: its records wait for no reader
    std::optional<uid_t> user;  ///< whose client's doing it sees to, and whose share a line takes

    /// That of the calling thread.
    static LogContext& Here() noexcept {
        static thread_local LogContext context;
        return context;
    }
};

/// Says so of the calling thread for as long as it lives.
class LogsWithoutWaiting {
public:
    LogsWithoutWaiting() noexcept { LogContext::Here().mustNotWait = true; }
    LogsWithoutWaiting(const LogsWithoutWaiting&) = delete;
    LogsWithoutWaiting& operator=(const LogsWithoutWaiting&) = delete;
    ~LogsWithoutWaiting() { LogContext::Here().mustNotWait = false; }
};

/// The user of whoever is not served: all of them have one share.
inline constexpr uid_t kStrangers = static_cast<uid_t>(-1);

/// Says for as long as it lives whose client the calling thread sees to.
class LogsForUser {
public:
    explicit LogsForUser(std::optional<uid_t> user) noexcept
        : before_(std::exchange(LogContext::Here().user, user)) {}
    LogsForUser(const LogsForUser&) = delete;
    LogsForUser& operator=(const LogsForUser&) = delete;
    ~LogsForUser() { LogContext::Here().user = before_; }

private:
    const std::optional<uid_t> before_;
};

}  // namespace zam_platform
