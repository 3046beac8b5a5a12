#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ping_pong.h"
#include "process.h"
#include "zam_platform/frame.h"

/// Clients that load a server beside a quiet one: byte by byte, as nobody's library would.

namespace zam_bench {

/// Whom the loads run as, and by which group they are admitted, when the benchmark runs as root.
inline constexpr uid_t kCrowdUser = 4242;
inline constexpr char kCrowdGroup[] = "nogroup";

using FrameBytes = std::vector<unsigned char>;

/// A call's frame, with its header, the first 8 bytes of what follows it, and an arena.
FrameBytes CallFrame(const char* interface, std::uint16_t operation, std::uint64_t field = 0,
                     const std::string& arena = {});

/// One connection of a client.
class CrowdClient {
public:
    /// Connects to a socket of the working directory or with a whole path. Throws
    /// `std::runtime_error`.
    explicit CrowdClient(const std::string& path);

    int Get() const noexcept { return socket_.Get(); }

    /// Greets as the client of that number.
    bool Greet(std::uint32_t client) const;
    bool Send(const FrameBytes& frame) const {
        return SendAll(socket_.Get(), frame.data(), frame.size());
    }

    /// The next frame's fixed part; false when the server closes or refuses.
    bool Receive(FrameBytes& fixed) const;

    bool Exchange(const FrameBytes& frame, FrameBytes& fixed) const {
        return Send(frame) && Receive(fixed);
    }

private:
    zam_platform::UniqueFd socket_;
};

/// What came of a load.
struct LoadOutcome {
    std::uint64_t done = 0;
    std::uint64_t refused = 0;
};

/// A load in a process of its own, in the folder of a server's socket; begins at once. As root it
/// runs as another user, of the group that the service admits or of none.
class Load {
public:
    Load(const std::string& folder, bool isAdmitted, const std::function<LoadOutcome()>& body);

    /// Whether it has ended. Throws `std::runtime_error` when it failed.
    bool HasEnded();
    const LoadOutcome& Outcome() const noexcept { return outcome_; }

private:
    SocketPair result_;
    Child child_;
    LoadOutcome outcome_;
};

/// The floor: a process with one thread that takes every frame of the wire with sound sizes,
/// answers calls with zeros and refuses the rest, and whom it does not admit. Nothing behind it.
class BareCrowdServer {
public:
    explicit BareCrowdServer(const std::string& path);

private:
    zam_platform::UniqueFd listener_;
    Child child_;
};

}  // namespace zam_bench
