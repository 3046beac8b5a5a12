#include "zam_platform/posix_error.h"

#include <fmt/format.h>

#include <cerrno>
#include <system_error>

namespace zam_platform {
namespace {

TransportStatus StatusOf(int errorNumber) {
    switch (errorNumber) {
        case ENOENT:
        case ECONNREFUSED:
        case ENOTDIR:
            return kStatusUnavailable;
        case EACCES:
        case EPERM:
        case ELOOP:
            return kStatusUntrusted;
        case EMFILE:
        case ENFILE:
        case ENOMEM:
        case ENOBUFS:
            return kStatusResources;
        case EAGAIN:
        case ETIMEDOUT:
            return kStatusTimeout;
        case EPIPE:
        case ECONNRESET:
        case ECONNABORTED:
        case ENOTCONN:
            return kStatusBroken;
        case EPROTOTYPE:
            return kStatusUntrusted;
        default:
            return kStatusResources;
    }
}

}  // namespace

PlatformError PosixError(std::string_view context, int errorNumber) {
    return {StatusOf(errorNumber), fmt::format("{}: {}", context, PosixErrorText(errorNumber))};
}

std::string PosixErrorText(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

}  // namespace zam_platform
