#pragma once

#include <cstddef>

#include "zam_platform/unique_fd.h"

namespace zam_bench {

/// The floor of every call: bytes there and bytes back over a bare blocking Unix stream socket.
struct Exchange {
    std::size_t requestBytes;
    std::size_t responseBytes;
};

/// Bytes of a `GetState` call on the wire: a prelude and a fixed part each way.
inline constexpr Exchange kGetStateExchange{32 + 24, 32 + 32};

struct SocketPair {
    zam_platform::UniqueFd client;
    zam_platform::UniqueFd server;
};
SocketPair MakeSocketPair();

/// All the bytes, blocking; false when the peer is gone.
bool SendAll(int socket, const unsigned char* from, std::size_t bytes);
bool ReceiveAll(int socket, unsigned char* to, std::size_t bytes);

/// One exchange as the client. Throws `std::runtime_error` when the server is gone.
void Ping(int socket, const Exchange& exchange);

/// Answers until the client is gone.
void ServePings(int socket, const Exchange& exchange);

}  // namespace zam_bench
