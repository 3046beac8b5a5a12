#include "zam_platform/transport_status.h"

#include <fmt/format.h>

namespace zam_platform {

const char* DescribeStatus(std::int32_t status) noexcept {
    switch (status) {
        case kStatusOk:
            return "success";
        case kStatusBadTransport:
            return "the transport has no usable handle";
        case kStatusUnavailable:
            return "the service is not reachable";
        case kStatusBroken:
            return "the connection broke before the answer was complete";
        case kStatusTimeout:
            return "the time for the answer ran out";
        case kStatusUntrusted:
            return "the service's directory, socket or process failed a check";
        case kStatusProtocol:
            return "the service broke the frame format";
        case kStatusAnswerTooLarge:
            return "the answer exceeds the room for it";
        case kStatusRequestTooLarge:
            return "the request exceeds what a frame can carry";
        case kStatusResources:
            return "this process is out of descriptors or memory";
        case kStatusCancelled:
            return "the call was ended by its caller";
        case kStatusNotAdmitted:
            return "the service does not serve this user";
        case kStatusQuota:
            return "the service's limits for this user are reached";
        case kStatusVersion:
            return "the service speaks another version of the frame format";
        case kStatusBadRequest:
            return "the service found the request to break a rule";
        case kStatusUnanswered:
            return "the service gave the call up without an answer";
        default: {
            thread_local char text[32];  // "transport status -2147483648" and its end
            *fmt::format_to_n(text, sizeof(text) - 1, "transport status {}", status).out = '\0';
            return text;
        }
    }
}

}  // namespace zam_platform
