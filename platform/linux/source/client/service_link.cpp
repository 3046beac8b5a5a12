#include "client/service_link.h"

#include <fmt/format.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include "client/call_bounds.h"
#include "client/call_under_way.h"
#include "vd/service_locator.h"
#include "zam_platform/report.h"

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "service_link";

/// How long a connect that may be interrupted goes on before it looks.
constexpr std::chrono::milliseconds kConnectSlice{100};

/// The bytes of a header that the stub writes and an answer must repeat.
constexpr std::size_t kStubBytes = offsetof(vd_message_header, reserved);

SessionToken NewToken() {
    SessionToken token{};
    std::size_t filled = 0;
    while (filled < token.size()) {
        const ssize_t got = ::getrandom(token.data() + filled, token.size() - filled, 0);
        if (got > 0) {
            filled += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            throw PosixError("random bytes for a session token", errno);
        }
    }
    return token;
}

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

struct ServiceLink::Connection {
    std::unique_ptr<Channel> channel;
    std::uint64_t calls = 0;              ///< made on this channel; numbers them
    std::optional<std::uint16_t> offers;  ///< of `Offer`, once its service was asked
    Connection* nextIdle = nullptr;
    Connection* next = nullptr;
    Connection* previous = nullptr;
};

class ServiceLink::Lease {
public:
    Lease(ServiceLink& link, Connection* connection) noexcept
        : link_(link), connection_(connection) {}
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    ~Lease() { Reset(nullptr); }

    explicit operator bool() const noexcept { return connection_ != nullptr; }
    Connection* operator->() const noexcept { return connection_; }
    Connection& operator*() const noexcept { return *connection_; }

    /// Closes the connection and takes another.
    void Reset(Connection* connection) noexcept {
        if (connection_ != nullptr) {
            link_.Discard(connection_);
        }
        connection_ = connection;
    }

    /// The connection, which is the caller's now.
    Connection* Release() noexcept { return std::exchange(connection_, nullptr); }

    void GiveBack() noexcept { link_.GiveBack(std::exchange(connection_, nullptr)); }

private:
    ServiceLink& link_;
    Connection* connection_;
};

ServiceLink::ServiceLink(ChannelFactory connect)
    : connect_(std::move(connect)), token_(NewToken()) {}

ServiceLink::~ServiceLink() {
    const qor::MutexLock lock(mutex_);
    for (Connection* connection = all_; connection != nullptr;) {
        delete std::exchange(connection, connection->next);
    }
}

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
            RememberFarewell(call);
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
        const bool isThere = flags == 0 || AskForOffers(*lease, deadline);
        frame.prelude.flags = (lease->offers.value_or(0) & kOfferFailedTransfer) != 0 ? flags : 0;
        frame.prelude.callNumber = ++lease->calls;
        answer.callNumber = frame.prelude.callNumber;
        if (isThere && lease->channel->Send(frame, deadline) &&
            lease->channel->Receive(answer, deadline)) {
            break;
        }
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
    if (isMessage && answer.status == kStatusOk &&
        std::memcmp(&stubBytes, answer.fixed, kStubBytes) != 0) {
        throw PlatformError(kStatusProtocol, "the answer's header is not that of its request");
    }
    if (!isMessage) {
        NoteOffers(*lease, answer);
    }
    if (underWay.Detach()) {
        lease.GiveBack();
    }
    ForgetFailures();
}

bool ServiceLink::AskForOffers(Connection& connection, const Deadline& deadline) {
    if (connection.offers) {
        return true;
    }
    LookupResult result{};
    OutgoingFrame frame{.prelude = {.kind = FrameKind::Lookup, .fixedBytes = kNoEndpoint.size()},
                        .fixed = kNoEndpoint.data()};
    frame.prelude.callNumber = ++connection.calls;
    IncomingFrame answer{.kind = FrameKind::LookupAnswer,
                         .callNumber = connection.calls,
                         .fixed = &result,
                         .fixedBytes = sizeof(result)};
    if (!connection.channel->Send(frame, deadline)) {
        return false;
    }
    if (!connection.channel->Receive(answer, deadline)) {
        return false;
    }
    NoteOffers(connection, answer);
    return true;
}

void ServiceLink::NoteOffers(Connection& connection, const IncomingFrame& answer) noexcept {
    LookupResult result{};
    if (answer.status == kStatusOk) {
        std::memcpy(&result, answer.fixed, sizeof(result));
    }
    connection.offers = result.offers;
}

ServiceLink::Connection* ServiceLink::TakeIdle() noexcept {
    const qor::MutexLock lock(mutex_);
    Connection* const connection = idle_;
    if (connection != nullptr) {
        idle_ = connection->nextIdle;
        --idleCount_;
    }
    return connection;
}

ServiceLink::Connection* ServiceLink::Connect(const Deadline& deadline,
                                              const CallUnderWay& underWay) {
    SessionToken token;
    {
        const qor::MutexLock lock(mutex_);
        token = token_;
    }
    auto connection = std::make_unique<Connection>();
    connection->channel = MakeChannel(token, deadline, underWay);
    const qor::MutexLock lock(mutex_);
    connection->next = all_;
    if (all_ != nullptr) {
        all_->previous = connection.get();
    }
    all_ = connection.get();
    return connection.release();
}

std::unique_ptr<Channel> ServiceLink::MakeChannel(const SessionToken& token,
                                                  const Deadline& deadline,
                                                  const CallUnderWay& underWay) const {
    if (!underWay.CanBeInterrupted()) {
        return connect_(token, deadline);
    }
    // Nothing ends a connect from outside, so it looks up now and then.
    for (;;) {
        const Deadline slice = Earlier(deadline, std::chrono::steady_clock::now() + kConnectSlice);
        try {
            return connect_(token, slice);
        } catch (const PlatformError& error) {
            underWay.ThrowIfInterrupted();
            if (error.Status() != kStatusTimeout || slice == deadline) {
                throw;
            }
        }
    }
}

ServiceLink::Connection* ServiceLink::ConnectAndSay(const Deadline& deadline,
                                                    CallUnderWay& underWay) {
    Lease lease(*this, Connect(deadline, underWay));
    std::list<UnsaidFarewell> unsaid = TakeUnsaidFarewells();
    if (unsaid.empty()) {
        return lease.Release();
    }
    bool wasGiven = false;
    try {
        const CallUnderWay::Detacher detacher(underWay);
        underWay.Attach(*lease->channel);
        const Deadline sayDeadline =
            Earlier(deadline, std::chrono::steady_clock::now() + kFarewellTimeout);
        for (; !unsaid.empty(); unsaid.pop_front()) {
            Say(unsaid.front(), *lease, sayDeadline);
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
        unsaid.pop_front();
    }
    PutBackFarewells(std::move(unsaid));
    underWay.ThrowIfInterrupted();
    lease.Reset(Connect(deadline, underWay));
    return lease.Release();
}

void ServiceLink::Say(UnsaidFarewell& farewell, Connection& connection, const Deadline& deadline) {
    OutgoingFrame frame{.prelude = {.kind = FrameKind::Call, .fixedBytes = farewell.requestBytes},
                        .fixed = farewell.request.data()};
    frame.prelude.callNumber = ++connection.calls;
    IncomingFrame answer{.kind = FrameKind::Answer,
                         .callNumber = connection.calls,
                         .fixed = farewell.response.data(),
                         .fixedBytes = static_cast<std::uint32_t>(farewell.response.size())};
    if (!connection.channel->Send(frame, deadline) ||
        !connection.channel->Receive(answer, deadline)) {
        throw PlatformError(kStatusBroken, "the service took no byte of a farewell");
    }
}

void ServiceLink::PutBackFarewells(std::list<UnsaidFarewell> farewells) noexcept {
    const qor::MutexLock lock(mutex_);
    unsaidFarewells_.splice(unsaidFarewells_.begin(), farewells);
    while (unsaidFarewells_.size() > kMaxUnsaidFarewells) {
        unsaidFarewells_.pop_front();
    }
}

void ServiceLink::RememberFarewell(const LinkCall& call) noexcept {
    if (call.request->fixedSize > kMaxFixedBytes ||
        (call.requestArena != nullptr && call.requestArena->used != 0) ||
        call.responseArena != nullptr) {
        return;
    }
    try {
        std::list<UnsaidFarewell> farewell(1);
        farewell.front().request.resize((call.request->fixedSize + sizeof(std::uint64_t) - 1) /
                                        sizeof(std::uint64_t));
        farewell.front().requestBytes = call.request->fixedSize;
        farewell.front().response.resize(call.response->fixedSize);
        std::memcpy(farewell.front().request.data(), call.request, call.request->fixedSize);
        const qor::MutexLock lock(mutex_);
        if (unsaidFarewells_.size() >= kMaxUnsaidFarewells) {
            unsaidFarewells_.pop_front();
        }
        unsaidFarewells_.splice(unsaidFarewells_.end(), farewell);
    } catch (const std::bad_alloc&) {
        // What it would have ended ends with the session.
    }
}

std::list<ServiceLink::UnsaidFarewell> ServiceLink::TakeUnsaidFarewells() noexcept {
    std::list<UnsaidFarewell> farewells;
    const qor::MutexLock lock(mutex_);
    farewells.swap(unsaidFarewells_);
    return farewells;
}

void ServiceLink::GiveBack(Connection* connection) noexcept {
    {
        const qor::MutexLock lock(mutex_);
        if (idleCount_ < kMaxIdleChannels) {
            connection->nextIdle = idle_;
            idle_ = connection;
            ++idleCount_;
            return;
        }
    }
    Discard(connection);
}

void ServiceLink::Discard(Connection* connection) noexcept {
    // Closed under the lock, or a fork in between would leave the child a copy that nobody knows.
    const qor::MutexLock lock(mutex_);
    Unlink(connection);
    delete connection;
}

void ServiceLink::Unlink(Connection* connection) noexcept {
    (connection->previous == nullptr ? all_ : connection->previous->next) = connection->next;
    if (connection->next != nullptr) {
        connection->next->previous = connection->previous;
    }
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

void ServiceLink::RestartInChild() noexcept {
    for (Connection* connection = all_; connection != nullptr; connection = connection->next) {
        connection->channel->Abandon();
    }
    while (idle_ != nullptr) {
        Connection* const connection = idle_;
        idle_ = connection->nextIdle;
        Unlink(connection);
        delete connection;
    }
    // What is left was leased by threads that the child does not have: nobody will free it.
    all_ = nullptr;
    idleCount_ = 0;
    unsaidFarewells_.clear();  // the parent's
    failureDelayMs_.store(0, std::memory_order_relaxed);
    token_ = NewToken();
    mutex_.unlock();
}

}  // namespace zam_platform
