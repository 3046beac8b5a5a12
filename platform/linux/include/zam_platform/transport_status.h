#pragma once

#include <cstdint>

/// Transport statuses of this platform. 0 is success; the numbers are stable, for logs and tests.

namespace zam_platform {

enum TransportStatus : std::int32_t {
    kStatusOk = 0,
    kStatusBadTransport = 1,     ///< the transport was made on a handle that is no good
    kStatusUnavailable = 2,      ///< no service listens, or it could not be connected to
    kStatusBroken = 3,           ///< the connection broke before the answer was complete
    kStatusTimeout = 4,          ///< the call's own deadline, or the time for the rest of an answer
    kStatusUntrusted = 5,        ///< the runtime directory, socket or peer failed a check
    kStatusProtocol = 6,         ///< the peer broke a rule of the frame format
    kStatusAnswerTooLarge = 7,   ///< the answer's arena exceeds the one provided
    kStatusRequestTooLarge = 8,  ///< the request exceeds what a frame can carry
    kStatusResources = 9,        ///< this process is out of descriptors or memory
    kStatusCancelled = 10,       ///< the caller's bounds ended the call
    kStatusNotAdmitted = 16,     ///< the service does not serve this user
    kStatusQuota = 17,           ///< the service's limits for this user are reached
    kStatusVersion = 18,         ///< the service speaks another version of the frame format
    kStatusBadRequest = 19,      ///< the service found the request to break a rule
    kStatusUnanswered = 20,      ///< the service gave the call up without an answer
};

/// What a status means, for people; "transport status N" for a number that is not this platform's
/// own, which lasts until the thread asks for another such number. Thread-safe.
const char* DescribeStatus(std::int32_t status) noexcept;

}  // namespace zam_platform
