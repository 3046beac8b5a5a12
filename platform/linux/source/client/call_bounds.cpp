#include "client/call_bounds.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <utility>

#include "zam_platform/transport_status.h"

namespace {

using std::chrono::steady_clock;

thread_local VdCallBounds* callBounds = nullptr;
thread_local std::int32_t lastStatus = zam_platform::kStatusOk;

std::atomic<std::uint32_t> defaultTimeoutMs{0};

VdTransportFailure FailureOf(std::int32_t status) noexcept {
    using namespace zam_platform;
    switch (status) {
        case kStatusOk:
            return VD_TRANSPORT_OK;
        case kStatusBadTransport:
        case kStatusUnavailable:
            return VD_TRANSPORT_UNAVAILABLE;
        case kStatusBroken:
        case kStatusUnanswered:
            return VD_TRANSPORT_BROKEN;
        case kStatusTimeout:
            return VD_TRANSPORT_TIMED_OUT;
        case kStatusUntrusted:
            return VD_TRANSPORT_UNTRUSTED;
        case kStatusNotAdmitted:
        case kStatusQuota:
            return VD_TRANSPORT_REFUSED;
        case kStatusAnswerTooLarge:
        case kStatusRequestTooLarge:
            return VD_TRANSPORT_TOO_LARGE;
        case kStatusProtocol:
        case kStatusVersion:
        case kStatusBadRequest:
            return VD_TRANSPORT_PROTOCOL;
        case kStatusResources:
            return VD_TRANSPORT_RESOURCES;
        case kStatusCancelled:
            return VD_TRANSPORT_CANCELLED;
        default:
            return VD_TRANSPORT_OTHER;
    }
}

}  // namespace

VdCallBounds* VdZorTransport_SetCallBounds(VdCallBounds* bounds) {
    return std::exchange(callBounds, bounds);
}

void VdZorTransport_SetDefaultTimeout(uint32_t timeoutMs) {
    defaultTimeoutMs.store(timeoutMs, std::memory_order_relaxed);
}

int32_t* VdZorTransport_LastStatus() {
    return &lastStatus;
}

VdTransportStatus VdZorTransport_DescribeStatus(int32_t status) {
    return {FailureOf(status), zam_platform::DescribeStatus(status)};
}

namespace zam_platform {

VdCallBounds* CallBounds() noexcept {
    return callBounds;
}

std::int32_t EndCall(std::int32_t status) noexcept {
    lastStatus = status;
    return status;
}

Deadline DeadlineOf(const VdCallBounds* bounds) {
    Deadline deadline;
    if (bounds != nullptr && bounds->deadlineNs != 0) {
        deadline = steady_clock::time_point(std::chrono::nanoseconds(bounds->deadlineNs));
    }
    const std::uint32_t timeoutMs = defaultTimeoutMs.load(std::memory_order_relaxed);
    if (timeoutMs == 0 || (bounds != nullptr && bounds->withoutDefaultTimeout != 0)) {
        return deadline;
    }
    return Earlier(deadline, steady_clock::now() + std::chrono::milliseconds(timeoutMs));
}

Deadline Earlier(const Deadline& one, const Deadline& other) {
    if (!one || !other) {
        return one ? one : other;
    }
    return std::min(*one, *other);
}

}  // namespace zam_platform
