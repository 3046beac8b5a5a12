#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/background.h"
#include "zam_platform/frame.h"
#include "zam_platform/unique_fd.h"

/// Peers that send what a test says, byte by byte if need be, and know nothing of the code under
/// test but the frame's layout.

namespace zam_platform::testing {

using Bytes = std::vector<unsigned char>;

Bytes operator+(Bytes left, const Bytes& right);
Bytes BytesOf(std::string_view text);
Bytes FromHex(std::string_view digits);  ///< spaces are skipped
std::string ToHex(const Bytes& bytes);

/// The first `count` bytes, or all behind them.
Bytes Head(const Bytes& bytes, std::size_t count);
Bytes Tail(const Bytes& bytes, std::size_t from);

/// A pattern in which every stretch looks different.
Bytes Pattern(std::size_t size, std::uint32_t seed = 1);

/// A frame's bytes; the sizes in `prelude` are filled in from the parts.
Bytes FrameOf(Prelude prelude, const Bytes& fixed = {}, const Bytes& arena = {});
Bytes HelloFrame(unsigned char tokenByte = 0x11);
Bytes LookupFrame(std::string_view endpoint, std::uint64_t callNumber = 1);

struct Frame {
    Prelude prelude;
    Bytes fixed;
    Bytes arena;
};

/// One end of a stream connection. What fails throws `std::runtime_error`.
class RawSocket {
public:
    RawSocket() = default;
    explicit RawSocket(UniqueFd socket) noexcept : socket_(std::move(socket)) {}

    int Get() const noexcept { return socket_.Get(); }
    UniqueFd Release() noexcept { return std::move(socket_); }
    void Close() noexcept { socket_.Reset(); }

    /// Shuts the sending side.
    void EndSending() const;

    /// Makes the kernel's buffers as small as it lets them be.
    void ShrinkBuffers() const;

    void Send(const Bytes& bytes) const;

    /// False when the peer has gone.
    bool TrySend(const Bytes& bytes) const;

    /// Exactly so many bytes.
    Bytes Read(std::size_t count) const;
    Frame ReadFrame() const;

    /// All bytes that come before the end of the connection.
    Bytes ReadToEnd() const;

    /// Waits for the end of the connection; false when a byte comes before it.
    bool EndsNow() const { return ReadToEnd().empty(); }

    /// Waits until the peer has taken all that was sent.
    void AwaitTaken() const;

    /// True when something can be read without waiting, the end included.
    bool HasInput() const;

private:
    /// Waits for input, within the bound; 0 bytes is the end.
    std::size_t ReadSome(unsigned char* out, std::size_t count) const;

    UniqueFd socket_;
};

/// A connected pair.
std::pair<RawSocket, RawSocket> MakePair();

/// The address of a socket file, whose path need not be short.
class SocketAddress {
public:
    explicit SocketAddress(const std::string& path);

    void Connect(int socket) const;
    void Bind(int socket) const;

private:
    UniqueFd folder_;
    std::string path_;
};

UniqueFd NewUnconnectedSocket();

/// Connects to a socket file.
RawSocket ConnectRaw(const std::string& path);

/// A listening socket at a path, which need not be short.
class RawListener {
public:
    explicit RawListener(const std::string& path, int backlog = 64);

    /// Waits for the next connection, within the bound.
    RawSocket Accept() const;
    bool HasConnection() const;
    int Get() const noexcept { return socket_.Get(); }
    void Close() noexcept { socket_.Reset(); }

private:
    UniqueFd socket_;
};

}  // namespace zam_platform::testing
