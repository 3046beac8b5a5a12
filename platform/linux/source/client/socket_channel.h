#pragma once

#include <sys/uio.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "zam_platform/channel.h"
#include "zam_platform/runtime_directory.h"
#include "zam_platform/unique_fd.h"

namespace zam_platform {

/// Connects to a service's socket in a directory that has passed its checks, and checks the socket
/// and the process behind it: both must belong to root or to the directory's owner. Throws
/// `PlatformError`. Blocks while the service's queue of connections is full, at most until
/// `deadline`.
UniqueFd ConnectToService(const RuntimeDirectory& directory, const std::string& service,
                          const Deadline& deadline = {});

/// Open files that a service sends along with a frame.
using PassedFiles = std::array<UniqueFd, 2>;

/// A channel over a Unix stream socket.
class SocketChannel final : public Channel {
public:
    /// Takes a connected socket. The token goes out in front of the first frame, in the same
    /// system call. `frameTimeout` bounds the time from an answer's first byte to its last.
    SocketChannel(UniqueFd socket, const SessionToken& token,
                  std::chrono::milliseconds frameTimeout = kFrameTimeout) noexcept;

    ~SocketChannel() override;

    /// How many connections this process has closed or shut down. What has happened before in the
    /// order of threads is counted.
    static std::uint64_t Ended() noexcept;

    bool Send(const OutgoingFrame& frame, const Deadline& deadline) override;
    bool Receive(IncomingFrame& frame, const Deadline& deadline) override;
    void Interrupt() noexcept override;
    void Abandon() noexcept override;

    /// Receives a frame in two steps, for connections on which other frames may come in front of
    /// the answer. The body of a frame that is none is not to be received. Throws `PlatformError`.
    /// Files that come with the head are put into `files`, which may be null.
    Prelude ReceiveHead(const Deadline& deadline, PassedFiles* files = nullptr);
    void ReceiveBody(const Prelude& prelude, IncomingFrame& frame, const Deadline& deadline);

    int Descriptor() const noexcept { return socket_.Get(); }

private:
    /// Reads into the parts, of whose frame the first `have` bytes have been read, until there are
    /// as many as `wanted(have)` says; gives how many there are. `limit` ends it, and once the
    /// first byte has come, the time for a frame or `deadline`.
    template <typename Wanted>
    std::size_t ReadAll(std::span<iovec> parts, std::size_t have, Deadline limit,
                        const Deadline& deadline, Wanted&& wanted, PassedFiles* files = nullptr);

    /// By when a frame that begins now must be whole.
    Deadline EndOfFrame(const Deadline& deadline) const;

    /// Has the kernel end a blocking read at the deadline or before. False when too little time is
    /// left for that.
    bool BoundReads(const std::chrono::steady_clock::time_point& deadline);

    UniqueFd socket_;
    SessionToken token_;
    std::chrono::milliseconds frameTimeout_;
    std::chrono::microseconds readBound_{0};  ///< what the kernel knows; 0: none
    bool greeted_ = false;
};

}  // namespace zam_platform
