#include "client/service_link.h"

#include <fmt/format.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <thread>
#include <utility>

#include "vd/service_locator.h"
#include "zam_platform/report.h"

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "service_link";

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

bool IsPeerGone(TransportStatus status) {
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
    std::uint64_t calls = 0;  ///< made on this channel; numbers them
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

    /// Closes the connection and takes another.
    void Reset(Connection* connection) noexcept {
        if (connection_ != nullptr) {
            link_.Discard(connection_);
        }
        connection_ = connection;
    }

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

void ServiceLink::Open() {
    GiveBack(Connect({}));
}

std::int32_t ServiceLink::Call(const LinkCall& call) noexcept {
    const vd_message_header stub = StubOf(call.response);
    Deadline deadline;
    if (call.timeout.count() > 0) {
        deadline = std::chrono::steady_clock::now() + call.timeout;
    }
    TransportStatus failure = kStatusOk;
    try {
        CheckRequest(call);
        const std::uint32_t arenaBytes = call.requestArena == nullptr ? 0 : call.requestArena->used;
        const OutgoingFrame frame{.prelude = {.kind = FrameKind::Call,
                                              .fixedBytes = call.request->fixedSize,
                                              .arenaBytes = arenaBytes},
                                  .fixed = call.request,
                                  .arena = arenaBytes == 0 ? nullptr : call.requestArena->base};
        Empty(call.responseArena);
        IncomingFrame answer{.kind = FrameKind::Answer,
                             .fixed = call.response,
                             .fixedBytes = stub.fixedSize,
                             .arena = call.responseArena};
        Exchange(frame, answer, deadline);
        return answer.status;
    } catch (...) {
        failure = StatusOfCaught("Call");
    }
    if (call.farewell && IsPeerGone(failure)) {
        ZeroFill(call, stub);
        return kStatusOk;
    }
    // A request that was never tried says nothing about the service.
    if (failure != kStatusRequestTooLarge) {
        DelayFailure(deadline);
    }
    return failure;
}

std::uint16_t ServiceLink::Lookup(std::string_view endpoint) noexcept {
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
        Exchange(frame, answer, {});
        return answer.status == kStatusOk ? result.riid : VD_UNKNOWN_RIID;
    } catch (...) {
        if (StatusOfCaught("Lookup") != kStatusRequestTooLarge) {
            DelayFailure({});
        }
        return VD_UNKNOWN_RIID;
    }
}

void ServiceLink::Exchange(OutgoingFrame frame, IncomingFrame& answer, const Deadline& deadline) {
    const bool isMessage = answer.kind == FrameKind::Answer;
    std::uint64_t stubBytes = 0;
    static_assert(sizeof(stubBytes) == kStubBytes);
    if (isMessage) {
        std::memcpy(&stubBytes, answer.fixed, kStubBytes);
    }

    Lease lease(*this, TakeIdle());
    for (bool fresh = false;; fresh = true) {
        if (!lease) {
            lease.Reset(Connect(deadline));
            fresh = true;
        }
        frame.prelude.callNumber = ++lease->calls;
        if (lease->channel->Send(frame, deadline)) {
            break;
        }
        if (fresh) {
            // A service that turns a connection away says why before it closes it.
            lease->channel->Receive(answer, std::chrono::steady_clock::now());
            throw PlatformError(kStatusBroken, "the service took no byte of the request");
        }
        // A kept connection whose service has gone takes nothing, so the call may go to the
        // service's successor: once, and only because not one byte of it has left.
        lease.Reset(nullptr);
    }
    answer.callNumber = frame.prelude.callNumber;
    lease->channel->Receive(answer, deadline);
    if (isMessage && answer.status == kStatusOk &&
        std::memcmp(&stubBytes, answer.fixed, kStubBytes) != 0) {
        throw PlatformError(kStatusProtocol, "the answer's header is not that of its request");
    }
    lease.GiveBack();
    ForgetFailures();
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

ServiceLink::Connection* ServiceLink::Connect(const Deadline& deadline) {
    SessionToken token;
    {
        const qor::MutexLock lock(mutex_);
        token = token_;
    }
    auto connection = std::make_unique<Connection>();
    connection->channel = connect_(token, deadline);
    const qor::MutexLock lock(mutex_);
    connection->next = all_;
    if (all_ != nullptr) {
        all_->previous = connection.get();
    }
    all_ = connection.get();
    return connection.release();
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
    failureDelayMs_.store(0, std::memory_order_relaxed);
    token_ = NewToken();
    mutex_.unlock();
}

}  // namespace zam_platform
