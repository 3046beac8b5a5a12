#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "client/unsaid_farewells.h"
#include "qor/mutex.h"
#include "vd/arena.h"
#include "vd/call_bounds.h"
#include "zam_platform/channel.h"
#include "zam_platform/frame.h"
#include "zam_platform/posix_error.h"

namespace zam_platform {

/// Idle connections that a link keeps; more than this many calls at once connect anew.
inline constexpr std::size_t kMaxIdleChannels = 16;

/// Spacing of failing returns while a service is away: the first, doubling up to the last.
inline constexpr std::chrono::milliseconds kFirstFailureDelay{1};
inline constexpr std::chrono::milliseconds kLastFailureDelay{250};

/// Longest time that a farewell is tried for.
inline constexpr std::chrono::milliseconds kFarewellTimeout{750};

/// One call, as the transport's operation gets it.
struct LinkCall {
    const vd_message_header* request = nullptr;
    const vd_arena* requestArena = nullptr;
    vd_message_header* response = nullptr;
    vd_arena* responseArena = nullptr;
    std::chrono::milliseconds timeout{0};  ///< 0: none
    bool farewell = false;                 ///< done, with a zero-filled response, when it was tried
    VdCallBounds* bounds = nullptr;
};

/// What has become of a link's calls, those under way left out.
struct LinkUse {
    ChannelUse channels;      ///< all of them together; the newest offers
    std::uint64_t calls = 0;  ///< answered
};

class CallUnderWay;

/// This process's connections to one service. Every call in flight has a channel of its own, so a
/// call that the service answers late holds up no other; idle channels are kept, the last used on
/// top. Any number of threads may use a link at once; it starts none. Links live as long as the
/// process.
class ServiceLink {
public:
    explicit ServiceLink(ChannelFactory connect);
    ServiceLink(const ServiceLink&) = delete;
    ServiceLink& operator=(const ServiceLink&) = delete;
    ~ServiceLink();

    /// Connects once and keeps the channel. Throws `PlatformError`.
    void Open(VdCallBounds* bounds = nullptr);

    /// Gives the transport status. A failing return is delayed while the service is away.
    ///
    /// A farewell is tried for `kFarewellTimeout` at most and is then done, whatever came of it.
    /// One that failed although a service may be there is said again on the next new connection.
    std::int32_t Call(const LinkCall& call) noexcept;

    /// The riid of an endpoint; 0xFFFF when it is unknown or the service does not answer.
    std::uint16_t Lookup(std::string_view endpoint, VdCallBounds* bounds = nullptr) noexcept;

    /// Does not wait for calls under way.
    LinkUse Use() noexcept QOR_EXCLUDES(mutex_);

    /// Around `fork`: what the parent's connections carry belongs to the parent, so the child drops
    /// its copies, those of calls that other threads had in flight included, and is a new client.
    void LockForFork() QOR_NO_THREAD_SAFETY_ANALYSIS { mutex_.lock(); }
    void UnlockInParent() QOR_NO_THREAD_SAFETY_ANALYSIS { mutex_.unlock(); }
    void RestartInChild() noexcept QOR_NO_THREAD_SAFETY_ANALYSIS;

private:
    struct Connection;

    /// A connection in the hands of one call; closed unless it is given back.
    class Lease;

    /// Sends the frame once and receives its answer. Throws `PlatformError`.
    void Exchange(OutgoingFrame frame, IncomingFrame& answer, const Deadline& deadline,
                  CallUnderWay& underWay);

    Connection* TakeIdle() noexcept QOR_EXCLUDES(mutex_);
    Connection* Connect(const Deadline& deadline, const CallUnderWay& underWay)
        QOR_EXCLUDES(mutex_);
    void GiveBack(Connection* connection) noexcept QOR_EXCLUDES(mutex_);
    void Discard(Connection* connection) noexcept QOR_EXCLUDES(mutex_);
    void Unlink(Connection* connection) noexcept QOR_REQUIRES(mutex_);

    /// What the link knows of a connection becomes what its thread knows.
    void NoteUse(Connection& connection) noexcept QOR_REQUIRES(mutex_);

    std::int32_t Try(const LinkCall& call) noexcept;
    /// What the call's bounds want the service to be told, if it understands.
    static std::uint32_t FlagsOf(const LinkCall& call) noexcept;

    /// Learns what the process at the other end offers, if that is not known. False when it is
    /// gone.
    static bool LearnOffers(Connection& connection, const Deadline& deadline);

    /// A connection of this call's own, on which what was left to say has been said.
    Connection* ConnectAndSay(const Deadline& deadline, CallUnderWay& underWay);
    std::unique_ptr<Channel> MakeChannel(const SessionToken& token, const Deadline& deadline,
                                         const CallUnderWay& underWay) const;

    void Remember(const LinkCall& farewell) noexcept QOR_EXCLUDES(mutex_);
    UnsaidFarewells TakeUnsaid() noexcept QOR_EXCLUDES(mutex_);
    void PutBack(UnsaidFarewells farewells) noexcept QOR_EXCLUDES(mutex_);

    /// Waits, but not beyond the deadline of the call.
    void DelayFailure(const Deadline& deadline) noexcept;
    void ForgetFailures() noexcept;

    const ChannelFactory connect_;

    qor::Mutex mutex_;
    SessionToken token_ QOR_GUARDED_BY(mutex_);
    Connection* idle_ QOR_GUARDED_BY(mutex_) = nullptr;  ///< top of the stack of idle ones
    std::size_t idleCount_ QOR_GUARDED_BY(mutex_) = 0;
    Connection* all_ QOR_GUARDED_BY(mutex_) = nullptr;  ///< every one, leased ones included
    LinkUse ended_ QOR_GUARDED_BY(mutex_);              ///< of connections that are closed

    UnsaidFarewells unsaid_ QOR_GUARDED_BY(mutex_);

    std::atomic<std::uint32_t> failureDelayMs_{0};
};

}  // namespace zam_platform
