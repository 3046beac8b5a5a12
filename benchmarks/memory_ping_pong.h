#pragma once

#include <atomic>
#include <cstdint>

#include "ping_pong.h"
#include "process.h"

namespace zam_bench {

/// The floor of a call through memory: a number there and a number back, between two processes that
/// wait for them awake. The peer sleeps between two rounds.
class MemoryPeer {
public:
    MemoryPeer();
    MemoryPeer(const MemoryPeer&) = delete;
    MemoryPeer& operator=(const MemoryPeer&) = delete;
    ~MemoryPeer();

    pid_t Pid() const noexcept { return child_.Pid(); }

    /// Wakes the peer for a round of so many pings.
    void Begin(std::uint32_t pings);

    /// One of them.
    void Ping() noexcept;

private:
    struct Page;

    static void Serve(int socket, Page& page);

    Page* page_;  ///< shared with the child
    std::uint32_t number_ = 0;
    SocketPair sockets_;
    Child child_;
};

}  // namespace zam_bench
