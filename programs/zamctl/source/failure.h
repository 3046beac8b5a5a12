#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "zam_connector/call_deadline.h"

namespace zamctl {

/// What the process ends with.
enum ExitStatus : int {
    kExitDone = 0,
    kExitUsage = 1,        ///< the command line or what it refers to is wrong; nothing was sent
    kExitFailed = 2,       ///< the service or the library answered with a failure code
    kExitNoConnector = 3,  ///< no service, or not all of its endpoints
    kExitTimedOut = 4,     ///< a call ran out of time; it may have been done
};

/// A command that did not end well: what failed and why (`what()`), what to do about it, and the
/// exit status. Thrown by commands, turned into messages by `Application` alone.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus status, const std::string& message, std::string remedy = {})
        : std::runtime_error(message), status_(status), remedy_(std::move(remedy)) {}

    ExitStatus Status() const noexcept { return status_; }

    /// What to do; empty when the application's own advice for the status is good enough.
    const std::string& Remedy() const noexcept { return remedy_; }

private:
    ExitStatus status_;
    std::string remedy_;
};

/// The command line, or a file that it names, is no good; nothing has been sent.
class UsageError : public Failure {
public:
    explicit UsageError(const std::string& message, std::string remedy = {})
        : Failure(kExitUsage, message, std::move(remedy)) {}
};

/// There is no connector to make calls with; the status says whether nothing is there, or something
/// that answers nothing.
class ConnectorFailure : public Failure {
public:
    ConnectorFailure(const std::string& message, std::string remedy,
                     ExitStatus status = kExitNoConnector)
        : Failure(status, message, std::move(remedy)) {}
};

/// Nobody reads standard output any more: what was asked for has been read, and the command is
/// done.
class ReaderGone final : public std::exception {};

/// A call that was answered with a failure code, or with nothing in time.
class CallFailure : public Failure {
public:
    /// `action` completes "cannot ...". `cause` is what the library logged; empty when the code is
    /// the service's own. `failure` is what the transport came to.
    CallFailure(const std::string& action, int code, const std::string& cause,
                zam_connector::TransportFailure failure);
};

}  // namespace zamctl
