#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "zam_platform/transport_status.h"

namespace zam_platform {

/// A failure of the platform: the transport status that a caller gets and a text for the log that
/// names what failed and where.
class PlatformError : public std::runtime_error {
public:
    PlatformError(TransportStatus status, const std::string& text)
        : std::runtime_error(text), status_(status) {}

    TransportStatus Status() const noexcept { return status_; }

private:
    TransportStatus status_;
};

/// Turns an errno value into an error: the one place where that is done. `context` says what was
/// being done, with the path or number it was done to.
PlatformError PosixError(std::string_view context, int errorNumber);

/// The text that such an error ends with.
std::string PosixErrorText(int errorNumber);

}  // namespace zam_platform
