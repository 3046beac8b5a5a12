#include "call_scope.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>

#include "common/log.h"
#include "qor/mutex.h"

namespace zam_connector::proxy {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr char kSourceFile[] = "call_scope";
constexpr char kTimeoutVariable[] = "ZAM_CALL_TIMEOUT_MS";
constexpr std::int64_t kLargestTimeoutMs = std::numeric_limits<std::int32_t>::max();

thread_local CallScope* currentScope = nullptr;

/// Forks on the way to this process. What bounds calls is of the process that made it: its mutexes
/// may be held by threads that a child does not have.
std::atomic<unsigned> forks{0};

void BeginInChild() noexcept {
    forks.fetch_add(1, std::memory_order_relaxed);
    currentScope = nullptr;
    VdZorTransport_SetCallBounds(nullptr);
}

[[maybe_unused]] const int handlesForks = ::pthread_atfork(nullptr, nullptr, &BeginInChild);

constexpr std::int64_t kUnset = -1;

/// In milliseconds. The platform has it too, but cannot be asked.
std::atomic<std::int64_t> defaultTimeoutMs{kUnset};

/// Held while both are told, so that they are told the same.
qor::Mutex& TellingMutex() noexcept {
    static qor::Mutex mutex;
    return mutex;
}

void Tell(std::int64_t timeoutMs) noexcept {
    defaultTimeoutMs.store(timeoutMs, std::memory_order_relaxed);
    VdZorTransport_SetDefaultTimeout(static_cast<std::uint32_t>(timeoutMs));
}

/// 0 stands for no deadline, so that no moment is it.
std::int64_t ToNs(CallTime time) noexcept {
    return std::max<std::int64_t>(1, nanoseconds(time.time_since_epoch()).count());
}

std::int64_t Earlier(std::int64_t one, std::int64_t other) noexcept {
    if (one == 0 || other == 0) {
        return std::max(one, other);
    }
    return std::min(one, other);
}

/// The moment by which the calls of a scope that begin now must have ended, in nanoseconds; 0 for
/// none.
std::int64_t DeadlineNow(const VdCallBounds& bounds) noexcept {
    const std::int64_t timeoutMs = defaultTimeoutMs.load(std::memory_order_relaxed);
    if (timeoutMs <= 0 || bounds.withoutDefaultTimeout != 0) {
        return bounds.deadlineNs;
    }
    return Earlier(bounds.deadlineNs, ToNs(steady_clock::now() + milliseconds(timeoutMs)));
}

}  // namespace

CallScope::CallScope(const Bounds& bounds) noexcept : links_{} {
    links_.canceller = bounds.canceller;
    links_.outer = VdZorTransport_SetCallBounds(&links_);
    links_.process = forks.load(std::memory_order_relaxed);
    links_.outerScope = std::exchange(currentScope, this);
    links_.deadlineNs = bounds.deadline ? ToNs(*bounds.deadline) : 0;
    if (links_.outer != nullptr) {
        links_.deadlineNs = Earlier(links_.deadlineNs, links_.outer->deadlineNs);
        links_.withoutDefaultTimeout = links_.outer->withoutDefaultTimeout;
    }
    if (bounds.defaultTimeout != DefaultTimeout::Inherited) {
        links_.withoutDefaultTimeout = bounds.defaultTimeout == DefaultTimeout::Off ? 1 : 0;
    }
    if (bounds.canceller != nullptr ||
        (links_.outer != nullptr && links_.outer->enter != nullptr)) {
        links_.enter = &CallScope::Enter;
        links_.leave = &CallScope::Leave;
    }
}

CallScope::~CallScope() {
    if (links_.process != forks.load(std::memory_order_relaxed)) {
        return;  // of the parent; this process has never been under it
    }
    currentScope = links_.outerScope;
    VdZorTransport_SetCallBounds(links_.outer);
}

int CallScope::Enter(VdCallBounds* bounds, VdCallUnderWay* call) noexcept {
    auto& self = *static_cast<Links*>(bounds);
    // A logger may make calls of its own for a record of a call: they end with that.
    if (self.calls++ != 0) {
        return 1;
    }
    if (self.canceller != nullptr && !self.canceller->Enter(self.entry, call)) {
        self.calls = 0;
        return 0;
    }
    if (self.outer != nullptr && self.outer->enter != nullptr &&
        self.outer->enter(self.outer, call) == 0) {
        if (self.canceller != nullptr) {
            self.canceller->Leave(self.entry);
        }
        self.calls = 0;
        return 0;
    }
    return 1;
}

void CallScope::Leave(VdCallBounds* bounds, VdCallUnderWay* call) noexcept {
    auto& self = *static_cast<Links*>(bounds);
    if (--self.calls != 0) {
        return;
    }
    if (self.outer != nullptr && self.outer->leave != nullptr) {
        self.outer->leave(self.outer, call);
    }
    if (self.canceller != nullptr) {
        self.canceller->Leave(self.entry);
    }
}

bool CallScope::IsCancelled(CallCanceller::Closes closes) const noexcept {
    for (const CallScope* scope = this; scope != nullptr; scope = scope->links_.outerScope) {
        const CallCanceller* const canceller = scope->links_.canceller;
        if (canceller != nullptr && canceller->WhatOfCloses() == closes &&
            canceller->IsCancelled()) {
            return true;
        }
    }
    return false;
}

ChannelCloseScope::ChannelCloseScope() noexcept
    : CallScope(Bounds{}), statusBefore_(*VdZorTransport_LastStatus()), failed_{} {
    const std::int64_t deadline = DeadlineNow(links_);
    if (deadline != 0) {
        links_.deadlineNs = std::max(deadline, ToNs(steady_clock::now() + kCloseTimeout));
        links_.withoutDefaultTimeout = 1;
    }
    if (IsCancelled(CallCanceller::Closes::Allowed) && !IsCancelled(CallCanceller::Closes::Ended)) {
        LeaveCancellers();
    }
}

ChannelCloseScope::ChannelCloseScope(const VdFailedTransfer& failed) noexcept
    : ChannelCloseScope() {
    failed_ = failed;
    links_.failedTransfer = &failed_;
}

bool ChannelCloseScope::WasCancelled() const noexcept {
    return links_.enter != nullptr && *VdZorTransport_LastStatus() != 0 &&
           IsCancelled(CallCanceller::Closes::Allowed) &&
           !IsCancelled(CallCanceller::Closes::Ended);
}

void ChannelCloseScope::LeaveCancellers() noexcept {
    links_.enter = nullptr;
    links_.leave = nullptr;
    links_.deadlineNs = ToNs(steady_clock::now() + kCloseTimeout);
    links_.withoutDefaultTimeout = 1;
}

ChannelCloseScope::~ChannelCloseScope() {
    std::int32_t& last = *VdZorTransport_LastStatus();
    if (last == 0) {
        last = statusBefore_;
    }
}

void SetDefaultTimeout(milliseconds timeout) noexcept {
    const std::int64_t timeoutMs =
        timeout.count() == 0 ? 0 : std::clamp<std::int64_t>(timeout.count(), 1, kLargestTimeoutMs);
    const qor::MutexLock lock(TellingMutex());
    Tell(timeoutMs);
}

void ReadDefaultTimeout() noexcept {
    static std::once_flag once;
    std::call_once(once, [] {
        const char* const text = ::secure_getenv(kTimeoutVariable);
        if (text == nullptr) {
            return;
        }
        const std::string_view digits(text);
        std::int64_t timeoutMs = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), timeoutMs);
        if (error != std::errc() || end != digits.data() + digits.size() || timeoutMs < 0 ||
            timeoutMs > kLargestTimeoutMs) {
            common::Log(zor::logger::kLevelError, common::Here(kSourceFile, "ReadDefaultTimeout"),
                        "{}: '{}' is no number of milliseconds, 0 to {}; calls have no time-out",
                        kTimeoutVariable, text, kLargestTimeoutMs);
            return;
        }
        const qor::MutexLock lock(TellingMutex());
        if (defaultTimeoutMs.load(std::memory_order_relaxed) == kUnset) {
            Tell(timeoutMs);
        }
    });
}

}  // namespace zam_connector::proxy
