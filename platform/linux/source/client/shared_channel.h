#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include "client/socket_channel.h"
#include "common/polling_policy.h"
#include "shared/shared_file.h"
#include "zam_platform/channel.h"

namespace zam_platform {

/// What all such channels of a process share. Thread-safe.
struct ProcessPolling {
    PollingLeave leave;
    MemoryRequestBackoff failed{};       ///< memory that could not be had
    Relaxed<std::uint64_t> failures{0};  ///< how often

    /// Memory that the service has given up is let go of with the first call so long after the last
    /// look at it. Calls that are far apart spend no time on looking in between.
    Nanoseconds glancePeriod = std::chrono::seconds(10);
};

/// A channel whose calls go through memory while they come close together and the service looks for
/// them on another CPU, and else over a socket. Whatever fails on the way to the memory means the
/// socket. `docs/architecture.md` describes both ways, and why no call is lost or served twice
/// between them.
class SharedChannel final : public Channel {
public:
    /// Takes a connected socket. `process` must outlive the channel.
    SharedChannel(UniqueFd socket, const SessionToken& token, ProcessPolling& process,
                  std::chrono::milliseconds frameTimeout = kFrameTimeout) noexcept;

    /// One with a given way to decide, wherever it runs.
    SharedChannel(UniqueFd socket, const SessionToken& token, const ClientPolling& polling,
                  ProcessPolling& process,
                  std::chrono::milliseconds frameTimeout = kFrameTimeout) noexcept;

    bool Send(const OutgoingFrame& frame, const Deadline& deadline) override;
    bool Receive(IncomingFrame& frame, const Deadline& deadline) override;
    void Interrupt() noexcept override { socket_.Interrupt(); }
    void Abandon() noexcept override;
    bool HasMemory() const noexcept override;

private:
    enum class Way { Socket, Memory };

    bool SendThroughMemory(const OutgoingFrame& frame, const Deadline& deadline);
    bool SendThroughSocket(OutgoingFrame frame, const Deadline& deadline);
    bool Fits(const OutgoingFrame& frame) const noexcept;

    /// Whether the answer has come while it was looked for.
    bool AwaitInMemory() noexcept;
    bool IsAnswered() const noexcept;
    void TakeFromMemory(IncomingFrame& frame);
    void ReceiveThroughSocket(IncomingFrame& frame, const Deadline& deadline);

    /// False when the service has sent back what it will not serve.
    bool ReceiveBehindLooks(IncomingFrame& frame, const Deadline& deadline);

    /// Passes over looks that came too late. What it gives is one only where that is awaited.
    Prelude ReceiveHeadBehindLooks(const Deadline& deadline, PassedFiles* files = nullptr);

    /// Asks the service for memory. False when the connection is of no more use.
    bool AskForMemory(const Deadline& deadline);
    void TakeGrant(const Deadline& deadline);

    /// Lets go of memory that the service has given up.
    void DropGivenUp(TimePoint now) noexcept;

    /// Counts memory that could not be had, and why.
    void CountFailure(std::string_view why) noexcept;

    /// And asks for none in the whole process for a while, as it would be had no better elsewhere.
    void BackOff(std::string_view why) noexcept;
    std::uint32_t Hints() const noexcept;

    SocketChannel socket_;
    ClientMemory memory_;
    ClientPolling polling_;
    ProcessPolling& process_;
    MemoryRequestBackoff backoff_;
    bool isOnAnyCpu_ = true;      ///< whatever share of the CPUs this process has
    std::uint64_t number_ = 0;    ///< of the call that is under way, or was last
    std::uint64_t lastLook_ = 0;  ///< number of the last look frame

    /// Connections of this process whose ends stand before the last call on the socket. The service
    /// sees ends there only, and must see them before the calls that follow.
    std::uint64_t knownEnds_ = SocketChannel::Ended();

    Way way_ = Way::Socket;
    TimePoint nextGlance_;      ///< at memory that is not used
    bool mayAsk_ = true;        ///< until the service is known to have no memory to give
    bool hasAgreed_ = false;    ///< the service has given memory once
    bool mayHaveLook_ = false;  ///< one that came too late may be on the socket
};

}  // namespace zam_platform
