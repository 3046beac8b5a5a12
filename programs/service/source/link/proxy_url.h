#pragma once

#include <string>
#include <string_view>

namespace zam_service {

/// What stands in place of a proxy URL that cannot be told from a secret.
inline constexpr char kUnreadableProxy[] = "(unreadable)";

/// The part of a proxy URL that may be written down: `scheme://host:port`, or `host:port` without
/// a scheme that proxies have. Nothing in front of the last "@" is ever part of it (but the
/// scheme), nor are path, query and fragment; what is left must look like a host with a port, else
/// the answer is `kUnreadableProxy`. An empty URL stays empty. Thread-safe.
std::string ProxyWithoutCredentials(std::string_view url);

}  // namespace zam_service
