#include "client/service_link.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <thread>
#include <utility>

#include "client/call_bounds.h"
#include "client/call_under_way.h"
#include "client/offers.h"
#include "client/service_link_connection.h"
#include "vd/service_locator.h"
#include "zam_platform/report.h"

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "service_link";

/// The bytes of a header that the stub writes and an answer must repeat.
constexpr std::size_t kStubBytes = offsetof(vd_message_header, reserved);

bool IsPeerGone(std::int32_t status) {
    return status == kStatusUnavailable || status == kStatusBroken;
}

int LevelOf(TransportStatus status) {
    return IsPeerGone(status) || status == kStatusTimeout ? zor::logger::kLevelWarning
                                                          : zor::logger::kLevelError;
}

/// Turns what a call threw into its status, with a record of it.
TransportStatus StatusOfCaught(const char* function) noexcept {
    try {
        throw;
    } catch (const PlatformError& error) {
        Report(LevelOf(error.Status()), kSourceFile, function, error.what());
        return error.Status();
    } catch (const std::exception& exception) {
        Report(zor::logger::kLevelError, kSourceFile, function, exception.what());
        return kStatusResources;
    }
}

/// Of a call that was never made, which says nothing about the service.
class NotMade final : public PlatformError {
public:
    using PlatformError::PlatformError;
};

/// A call that would begin behind its deadline is not made: nobody knows then what became of it.
void ThrowIfOver(const Deadline& deadline) {
    if (deadline && std::chrono::steady_clock::now() >= *deadline) {
        throw NotMade(kStatusTimeout, "the time for the call had run out before it began");
    }
}

void CheckRequest(const LinkCall& call) {
    const std::uint32_t arenaBytes = call.requestArena == nullptr ? 0 : call.requestArena->used;
    if (call.request->fixedSize > kMaxFixedBytes || arenaBytes > kMaxArenaBytes) {
        throw PlatformError(
            kStatusRequestTooLarge,
            fmt::format("request of {} and {} bytes exceeds {} and {}", call.request->fixedSize,
                        arenaBytes, kMaxFixedBytes, kMaxArenaBytes));
    }
}

/// The stub's bytes of a response. Answers are read straight into it, so after a failure its size
/// is whatever the peer has sent.
vd_message_header StubOf(const vd_message_header* response) {
    vd_message_header stub{};
    std::memcpy(&stub, response, kStubBytes);
    return stub;
}

void Empty(vd_arena* arena) {
    if (arena != nullptr) {
        std::memset(arena->base, 0, arena->used);
        vd_arena_reset(arena);
    }
}

/// Makes the response what the stub wrote with zeros behind, whatever came of an answer.
void ZeroFill(const LinkCall& call, const vd_message_header& stub) {
    auto* const response = reinterpret_cast<unsigned char*>(call.response);
    std::memcpy(response, &stub, kStubBytes);
    std::memset(response + kStubBytes, 0, stub.fixedSize - kStubBytes);
    Empty(call.responseArena);
}

}  // namespace

void ServiceLink::Open(VdCallBounds* bounds) {
    CallUnderWay underWay(bounds);
    const Deadline deadline = DeadlineOf(bounds);
    try {
        underWay.ThrowIfInterrupted();
        ThrowIfOver(deadline);
        GiveBack(ConnectAndSay(deadline, underWay));
        EndCall(kStatusOk);
    } catch (const NotMade& error) {
        EndCall(error.Status());
        throw;
    } catch (const PlatformError& error) {
        if (EndCall(error.Status()) != kStatusCancelled) {
            DelayFailure(deadline);
        }
        throw;
    } catch (const std::bad_alloc&) {
        EndCall(kStatusResources);  // of this process: nothing about the service
        throw;
    }
}

std::int32_t ServiceLink::Call(const LinkCall& call) noexcept {
    std::int32_t status = EndCall(Try(call));
    if (call.farewell && status != kStatusOk) {
        if (status != kStatusUnavailable) {
            Remember(call);
        }
        status = kStatusOk;
    }
    return status;
}

std::int32_t ServiceLink::Try(const LinkCall& call) noexcept {
    const vd_message_header stub = StubOf(call.response);
    // A farewell has to be said when all else is over, so that nothing bounds it but its own time.
    CallUnderWay underWay(call.farewell ? nullptr : call.bounds);
    Deadline deadline;
    if (call.farewell) {
        deadline = std::chrono::steady_clock::now() + kFarewellTimeout;
    } else {
        deadline = DeadlineOf(call.bounds);
    }
    if (call.timeout.count() > 0) {
        deadline = Earlier(deadline, std::chrono::steady_clock::now() + call.timeout);
    }
    std::int32_t failure = kStatusOk;
    bool isMade = true;
    try {
        CheckRequest(call);
        const std::uint32_t arenaBytes = call.requestArena == nullptr ? 0 : call.requestArena->used;
        const OutgoingFrame frame{.prelude = {.kind = FrameKind::Call,
                                              .fixedBytes = call.request->fixedSize,
                                              .arenaBytes = arenaBytes,
                                              .flags = FlagsOf(call)},
                                  .fixed = call.request,
                                  .arena = arenaBytes == 0 ? nullptr : call.requestArena->base};
        Empty(call.responseArena);
        IncomingFrame answer{.kind = FrameKind::Answer,
                             .fixed = call.response,
                             .fixedBytes = stub.fixedSize,
                             .arena = call.responseArena};
        Exchange(frame, answer, deadline, underWay);
        failure = answer.status;
        if (!call.farewell || failure == kStatusOk) {
            return failure;
        }
    } catch (const NotMade&) {
        isMade = false;
        failure = StatusOfCaught("Call");
    } catch (...) {
        failure = underWay.IsEnded() ? kStatusCancelled : StatusOfCaught("Call");
    }
    if (call.farewell) {
        ZeroFill(call, stub);
    } else if (isMade && failure != kStatusRequestTooLarge && failure != kStatusCancelled) {
        // A request that was never tried, or given up, says nothing about the service.
        DelayFailure(deadline);
    }
    return failure;
}

std::uint32_t ServiceLink::FlagsOf(const LinkCall& call) noexcept {
    const VdFailedTransfer* const failed =
        call.bounds == nullptr ? nullptr : call.bounds->failedTransfer;
    std::int64_t channel = 0;
    if (failed == nullptr || failed->riid != call.request->riid ||
        failed->operation != call.request->operation ||
        call.request->fixedSize < sizeof(vd_message_header) + sizeof(channel)) {
        return 0;
    }
    std::memcpy(&channel, call.request + 1, sizeof(channel));
    return failed->channel == channel ? kFlagFailedTransfer : 0U;
}

std::uint16_t ServiceLink::Lookup(std::string_view endpoint, VdCallBounds* bounds) noexcept {
    CallUnderWay underWay(bounds);
    const Deadline deadline = DeadlineOf(bounds);
    try {
        if (endpoint.empty() || endpoint.size() > kMaxEndpointNameBytes) {
            throw PlatformError(kStatusRequestTooLarge,
                                fmt::format("endpoint name of {} bytes, not 1 to {}",
                                            endpoint.size(), kMaxEndpointNameBytes));
        }
        LookupResult result{};
        const OutgoingFrame frame{
            .prelude = {.kind = FrameKind::Lookup,
                        .fixedBytes = static_cast<std::uint32_t>(endpoint.size())},
            .fixed = endpoint.data()};
        IncomingFrame answer{
            .kind = FrameKind::LookupAnswer, .fixed = &result, .fixedBytes = sizeof(result)};
        Exchange(frame, answer, deadline, underWay);
        return EndCall(answer.status) == kStatusOk ? result.riid : VD_UNKNOWN_RIID;
    } catch (const NotMade&) {
        EndCall(StatusOfCaught("Lookup"));
        return VD_UNKNOWN_RIID;
    } catch (...) {
        const std::int32_t failure =
            EndCall(underWay.IsEnded() ? kStatusCancelled : StatusOfCaught("Lookup"));
        if (failure != kStatusRequestTooLarge && failure != kStatusCancelled) {
            DelayFailure(deadline);
        }
        return VD_UNKNOWN_RIID;
    }
}

void ServiceLink::Exchange(OutgoingFrame frame, IncomingFrame& answer, const Deadline& deadline,
                           CallUnderWay& underWay) {
    const bool isMessage = answer.kind == FrameKind::Answer;
    const std::uint32_t flags = frame.prelude.flags;
    std::uint64_t stubBytes = 0;
    static_assert(sizeof(stubBytes) == kStubBytes);
    if (isMessage) {
        std::memcpy(&stubBytes, answer.fixed, kStubBytes);
    }

    underWay.ThrowIfInterrupted();
    ThrowIfOver(deadline);
    Lease lease(*this, TakeIdle());
    const CallUnderWay::Detacher detacher(underWay);  // before the lease closes the channel
    for (bool fresh = false;; fresh = true) {
        if (!lease) {
            lease.Reset(ConnectAndSay(deadline, underWay));
            fresh = true;
        }
        underWay.Attach(*lease->channel);
        const bool isThere = flags == 0 || LearnOffers(*lease, deadline);
        frame.prelude.flags =
            (lease->channel->Use().offers.value_or(0) & kOfferFailedTransfer) != 0 ? flags : 0;
        frame.prelude.callNumber = ++lease->calls;
        answer.callNumber = frame.prelude.callNumber;
        if (isThere && lease->channel->Send(frame, deadline) &&
            lease->channel->Receive(answer, deadline)) {
            break;
        }
        underWay.ThrowIfInterrupted();
        if (fresh) {
            // A service that turns a connection away says why before it closes it.
            lease->channel->Receive(answer, std::chrono::steady_clock::now());
            throw PlatformError(kStatusBroken, "the service took no byte of the request");
        }
        // A kept connection whose service has gone takes nothing, so the call may go to the
        // service's successor: once, and only because not one byte of it has left.
        underWay.Detach();
        lease.Reset(nullptr);
    }
    if (isMessage) {
        ++lease->answered;
    }
    if (isMessage && answer.status == kStatusOk &&
        std::memcmp(&stubBytes, answer.fixed, kStubBytes) != 0) {
        throw PlatformError(kStatusProtocol, "the answer's header is not that of its request");
    }
    if (!isMessage) {
        lease->channel->NoteOffers(OffersIn(answer));
    }
    if (underWay.Detach()) {
        lease.GiveBack();
    }
    ForgetFailures();
}

bool ServiceLink::LearnOffers(Connection& connection, const Deadline& deadline) {
    return connection.channel->Use().offers ||
           AskForOffers(*connection.channel, ++connection.calls, deadline);
}

ServiceLink::Connection* ServiceLink::ConnectAndSay(const Deadline& deadline,
                                                    CallUnderWay& underWay) {
    Lease lease(*this, Connect(deadline, underWay));
    UnsaidFarewells unsaid = TakeUnsaid();
    if (unsaid.IsEmpty()) {
        return lease.Release();
    }
    bool wasGiven = false;
    try {
        const CallUnderWay::Detacher detacher(underWay);
        underWay.Attach(*lease->channel);
        const Deadline sayDeadline =
            Earlier(deadline, std::chrono::steady_clock::now() + kFarewellTimeout);
        for (; !unsaid.IsEmpty(); unsaid.DropFirst()) {
            unsaid.SayFirst(*lease->channel, ++lease->calls, sayDeadline);
            ++lease->answered;
        }
        return lease.Release();
    } catch (const PlatformError& error) {
        // Not this call's failure: it gets a connection that has said nothing. The farewell that
        // the service has been given is not said again, so that nobody pays for it twice.
        wasGiven = error.Status() == kStatusTimeout || error.Status() == kStatusBadRequest;
    } catch (const std::bad_alloc&) {
        // Nor is this.
    }
    if (wasGiven) {
        unsaid.DropFirst();
    }
    PutBack(std::move(unsaid));
    underWay.ThrowIfInterrupted();
    lease.Reset(Connect(deadline, underWay));
    return lease.Release();
}

UnsaidFarewells ServiceLink::TakeUnsaid() noexcept {
    const qor::MutexLock lock(mutex_);
    return std::exchange(unsaid_, {});
}

void ServiceLink::PutBack(UnsaidFarewells farewells) noexcept {
    const qor::MutexLock lock(mutex_);
    unsaid_.Prepend(std::move(farewells));
}

void ServiceLink::Remember(const LinkCall& call) noexcept {
    UnsaidFarewells farewell = UnsaidFarewells::Of(call);
    const qor::MutexLock lock(mutex_);
    unsaid_.Append(std::move(farewell));
}

void ServiceLink::DelayFailure(const Deadline& deadline) noexcept {
    constexpr auto kFirst = static_cast<std::uint32_t>(kFirstFailureDelay.count());
    constexpr auto kLast = static_cast<std::uint32_t>(kLastFailureDelay.count());
    const std::uint32_t delay = std::max(kFirst, failureDelayMs_.load(std::memory_order_relaxed));
    failureDelayMs_.store(std::min(delay * 2, kLast), std::memory_order_relaxed);
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(delay);
    std::this_thread::sleep_until(deadline ? std::min(*deadline, until) : until);
}

void ServiceLink::ForgetFailures() noexcept {
    // Read first: a store on every call would move the cache line between the callers' cores.
    if (failureDelayMs_.load(std::memory_order_relaxed) != 0) {
        failureDelayMs_.store(0, std::memory_order_relaxed);
    }
}

}  // namespace zam_platform
