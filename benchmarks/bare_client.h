#pragma once

#include <sys/un.h>

#include <string>

#include "ping_pong.h"
#include "zam_platform/unique_fd.h"

namespace zam_bench {

/// A look-up of an endpoint on the wire: a prelude and the longest name there, a prelude and the
/// answer back.
inline constexpr Exchange kLookupExchange{32 + 64, 32 + 8};

/// A connection to a Unix socket. Throws `std::runtime_error` when nobody takes it.
zam_platform::UniqueFd ConnectTo(const std::string& path);

/// What creating a connector needs of the system: two connections, eight exchanges over the first
/// and one over the second; and `calls` more over the first. Throws `std::runtime_error` when the
/// service is gone.
void ConnectTwiceAndLookUp(const std::string& path, int calls);

/// The address of a socket. Throws `std::runtime_error` for a path that is too long.
sockaddr_un AddressOf(const std::string& path);

}  // namespace zam_bench
