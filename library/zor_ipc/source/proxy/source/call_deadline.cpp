#include "zam_connector/call_deadline.h"

#include <limits>
#include <new>

#include "call_canceller.h"
#include "call_scope.h"

namespace zam_connector {
namespace {

using proxy::CallCanceller;
using proxy::CallScope;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

/// `within` from now, or the last moment that the clock can tell.
steady_clock::time_point FromNow(nanoseconds within) noexcept {
    const steady_clock::time_point now = steady_clock::now();
    return within > steady_clock::time_point::max() - now ? steady_clock::time_point::max()
                                                          : now + within;
}

CallScope* ScopeIn(void* room) noexcept {
    return std::launder(static_cast<CallScope*>(room));
}

}  // namespace

CallDeadline::CallDeadline(nanoseconds within) noexcept : CallDeadline(FromNow(within)) {}

CallDeadline::CallDeadline(steady_clock::time_point at) noexcept {
    static_assert(sizeof(CallScope) <= sizeof(room_) && alignof(CallScope) <= 8);
    ::new (room_.data()) CallScope({.deadline = at});
}

CallDeadline::~CallDeadline() {
    ScopeIn(room_.data())->~CallScope();
}

void SetDefaultCallTimeout(std::chrono::milliseconds timeout) noexcept {
    proxy::SetDefaultTimeout(timeout);
}

Canceller::Canceller()
    : canceller_(std::make_shared<CallCanceller>(CallCanceller::Closes::Allowed)) {}

Canceller::~Canceller() = default;

void Canceller::Cancel() noexcept {
    canceller_->Cancel();
}

bool Canceller::IsCancelled() const noexcept {
    return canceller_->IsCancelled();
}

Canceller::Scope::Scope(const Canceller& canceller) noexcept : canceller_(canceller.canceller_) {
    static_assert(sizeof(CallScope) <= sizeof(room_) && alignof(CallScope) <= 8);
    ::new (room_.data()) CallScope({.canceller = canceller_.get()});
}

Canceller::Scope::~Scope() {
    ScopeIn(room_.data())->~CallScope();
}

TransportStatus LastTransportStatus() noexcept {
    const std::int32_t number = *VdZorTransport_LastStatus();
    if (number == 0) {
        return {};
    }
    const VdTransportStatus status = VdZorTransport_DescribeStatus(number);
    return {static_cast<TransportFailure>(status.failure), number, status.text};
}

}  // namespace zam_connector
