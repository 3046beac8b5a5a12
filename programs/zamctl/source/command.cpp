#include "command.h"

#include <fmt/format.h>

#include "runtime_directory_check.h"

namespace zamctl {

void LimitRun(Clock& clock, std::chrono::milliseconds limit) {
    constexpr char kNotTaken[] =
        "\nzamctl: the time is over, and what was to be printed has not been taken\n"
        "What was asked for may have been done all the same.\n";
    clock.LimitRun(limit + kGrace, kNotTaken, kExitFailed);
}

ConnectorInterfaces Context::Connector() {
    return Reach([](ConnectorProvider& from) { return from.Open(); });
}

void Context::Begin() {
    if (hasBegun_) {
        return;
    }
    hasBegun_ = true;
    start = clock.Now();
    if (limit_) {
        deadline_.emplace(*limit_);
        LimitRun(clock, *limit_);
    }
}

void Context::ThrowIfOver(const char* action) const {
    if (limit_ && clock.Now() >= start + *limit_) {
        throw Failure(kExitTimedOut, fmt::format("cannot {}: the time is over", action),
                      "It was not asked for. '--timeout SECONDS' gives it more time; 'zamctl "
                      "doctor' checks whether the service answers.");
    }
}

std::string Context::TakeCause() {
    std::string cause = records_.Cause();
    records_.Clear();
    return cause;
}

void Context::ThrowConnectorFailure(const std::exception& exception) const {
    // The reason of the operating system stands in the log only; codes and exceptions do not carry
    // it.
    const std::string logged = records_.Cause();
    const std::string cause = logged.empty() ? exception.what() : logged;
    if (const auto* const missing = dynamic_cast<const MissingEndpoint*>(&exception)) {
        throw ConnectorFailure(
            fmt::format("the service '{}' lacks an endpoint: {}", missing->Service(), cause),
            "Restart zam_connectord, and install one of zamctl's version if that does not help; "
            "'zamctl doctor' lists the endpoints.");
    }
    if (const auto* const silent = dynamic_cast<const SilentService*>(&exception)) {
        throw ConnectorFailure(
            fmt::format("the service '{}' is there, but answers nothing: {}", silent->Service(),
                        cause),
            "Look whether zam_connectord is stopped or hangs, and start it again.", kExitTimedOut);
    }
    if (const auto* const away = dynamic_cast<const UnreachableService*>(&exception)) {
        throw ConnectorFailure(
            fmt::format("cannot reach the service '{}': {}", away->Service(), cause),
            ConnectRemedy(system, away->Service()) + " 'zamctl doctor' tells more.");
    }
    const bool isNothing = dynamic_cast<const NothingReturned*>(&exception) != nullptr;
    throw ConnectorFailure(
        fmt::format(
            "cannot make the connector: {}",
            isNothing && !logged.empty() ? fmt::format("{}: {}", exception.what(), logged) : cause),
        "'zamctl doctor' tells more.");
}

}  // namespace zamctl
