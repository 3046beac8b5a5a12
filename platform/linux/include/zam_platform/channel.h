#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "vd/arena.h"
#include "zam_platform/frame.h"

namespace zam_platform {

/// A moment by which something must be done; empty for none.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// Longest time between the first and the last byte of one frame.
inline constexpr std::chrono::seconds kFrameTimeout{5};

/// A frame to send. The parts are not owned; `prelude` tells their sizes.
struct OutgoingFrame {
    Prelude prelude;
    const void* fixed = nullptr;
    const void* arena = nullptr;
};

/// Room for the answer to a call. Filled even when the exchange fails: `arena->used` then covers
/// whatever was written.
struct IncomingFrame {
    FrameKind kind = FrameKind::Answer;  ///< the kind that is awaited
    std::uint64_t callNumber = 0;        ///< the number that it must carry
    void* fixed = nullptr;
    std::uint32_t fixedBytes = 0;  ///< the exact size that it must have, unless it fails the call
    vd_arena* arena = nullptr;     ///< empty at the start; null when the operation has none
    std::int32_t status = 0;       ///< out: the transport status that the service answered with
};

/// What a channel has found and done so far, besides carrying frames. Counts never go down.
struct ChannelUse {
    std::optional<std::uint16_t> offers;   ///< of `Offer`, once the service was asked
    bool hasMemory = false;                ///< shared with the service, as far as it has noticed
    std::uint64_t memoryCalls = 0;         ///< calls answered whose request was put there
    std::uint64_t vainPolls = 0;           ///< looks for an answer there that ended without it
    std::chrono::nanoseconds vainTime{0};  ///< that these took
};

/// A client's connection to a service, which carries frames. This is the one class that knows what
/// kind of connection it is; a pool, a locator and a server work with any. One thread at a time.
class Channel {
public:
    Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    virtual ~Channel() = default;

    /// Sends a whole frame; blocks while the peer does not take it. False when the peer is gone
    /// and has not taken a single byte, so that the frame may be sent elsewhere. Throws
    /// `PlatformError` for every other failure, after which the channel is of no more use.
    virtual bool Send(const OutgoingFrame& frame, const Deadline& deadline) = 0;

    /// Waits for the answer, without limit but for `deadline`; once its first byte has come the
    /// rest must follow within `kFrameTimeout`. False when the peer is gone and has not taken a
    /// single byte of the request after all, so that it may be sent elsewhere. Throws
    /// `PlatformError` for every other failure. After either the channel is of no more use.
    virtual bool Receive(IncomingFrame& frame, const Deadline& deadline) = 0;

    /// Makes what another thread is doing on this channel, and all that follows, fail. From any
    /// thread, while the channel lives; does not block.
    virtual void Interrupt() noexcept = 0;

    /// Lets go of the connection without a word to the peer: for the copy that a forked child
    /// holds of its parent's connection.
    virtual void Abandon() noexcept = 0;

    const ChannelUse& Use() const noexcept { return use_; }

    /// Keeps what the service offers, which the answer to a lookup has told.
    void NoteOffers(std::uint16_t offers) noexcept { use_.offers = offers; }

    /// Whether it shares memory with the service now, which may have given it up since the last
    /// call.
    virtual bool HasMemory() const noexcept { return false; }

protected:
    ChannelUse use_;
};

/// Makes a new channel to one service, which greets with the given token. Throws `PlatformError`,
/// at the latest at the deadline. From any thread.
using ChannelFactory =
    std::function<std::unique_ptr<Channel>(const SessionToken& token, const Deadline& deadline)>;

/// The channels of this build: to the named service of a runtime directory, which each new channel
/// opens and checks afresh.
ChannelFactory MakeChannelFactory(const std::string& directory, const std::string& service);

}  // namespace zam_platform
