#include "failure.h"

#include <fmt/format.h>

#include "codes.h"

namespace zamctl {
namespace {

std::string Message(const std::string& action, int code, const std::string& cause) {
    return cause.empty()
               ? fmt::format("cannot {}: the service answered {}", action, DescribeCode(code))
               : fmt::format("cannot {}: {}: {}", action, DescribeCode(code), cause);
}

std::string RemedyFor(int code, const std::string& cause, zam_connector::TransportFailure failure) {
    if (failure == zam_connector::TransportFailure::TimedOut) {
        return "It may have been done all the same. '--timeout SECONDS' gives it more time; "
               "'zamctl doctor' checks whether the service answers.";
    }
    // The library logged it: the call never came to the service, or its answer not back.
    if (!cause.empty()) {
        return "'zamctl doctor' checks whether the service runs and can be reached.";
    }
    switch (code) {
        case kInvalidArgument:
            return "The service does not accept these values, alone or together; change them.";
        case kInvalidState:
            return "The state of the connection does not allow it: 'zamctl state' prints it, "
                   "'zamctl stop' ends the connection.";
        case kAccessDenied:
            return "Run zamctl as a user to whom the service allows it.";
        default:
            return "Look into the log of zam_connectord; with ZAM_LOG_LEVEL=0 in its environment "
                   "it logs everything.";
    }
}

}  // namespace

CallFailure::CallFailure(const std::string& action, int code, const std::string& cause,
                         zam_connector::TransportFailure failure)
    : Failure(failure == zam_connector::TransportFailure::TimedOut ? kExitTimedOut : kExitFailed,
              Message(action, code, cause), RemedyFor(code, cause, failure)) {}

}  // namespace zamctl
