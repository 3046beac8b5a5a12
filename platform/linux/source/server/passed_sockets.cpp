#include "server/passed_sockets.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <system_error>

#include "zam_platform/posix_error.h"

namespace zam_platform {
namespace {

/// Where service managers begin; the standard streams come before.
constexpr int kFirstPassed = 3;

std::optional<long> NumberIn(const char* variable) {
    const char* const text = ::secure_getenv(variable);
    if (text == nullptr) {
        return std::nullopt;
    }
    const std::string_view digits(text);
    long number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return number;
}

/// The path that a Unix socket is bound to; empty for every other descriptor.
std::string BoundPath(int descriptor) {
    sockaddr_un address{};
    socklen_t length = sizeof(address);
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        address.sun_family != AF_UNIX || length <= offsetof(sockaddr_un, sun_path)) {
        return {};
    }
    const std::string_view path(&address.sun_path[0], length - offsetof(sockaddr_un, sun_path));
    return std::string(path.substr(0, path.find('\0')));
}

/// The directory is compared by what it is and not by its text, which may go through a link.
bool IsIn(const RuntimeDirectory& directory, const std::string& name, const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos || path.substr(slash + 1) != name) {
        return false;
    }
    struct stat expected {};
    struct stat found {};
    return ::fstat(directory.Descriptor(), &expected) == 0 &&
           ::stat(path.substr(0, slash + 1).c_str(), &found) == 0 &&
           expected.st_dev == found.st_dev && expected.st_ino == found.st_ino;
}

bool Has(int descriptor, int option, int value) {
    int found = 0;
    socklen_t length = sizeof(found);
    return ::getsockopt(descriptor, SOL_SOCKET, option, &found, &length) == 0 && found == value;
}

/// The server waits for connections and not in `accept`, so the socket must not block. The flag is
/// of the socket and reaches the service manager's descriptor too, which only waits on it.
UniqueFd Prepare(int descriptor, const std::string& path) {
    const std::string shown = fmt::format("passed socket '{}'", path);
    if (!Has(descriptor, SO_TYPE, SOCK_STREAM) || !Has(descriptor, SO_ACCEPTCONN, 1)) {
        throw PlatformError(kStatusResources, shown + ": must be a stream socket that listens");
    }
    UniqueFd copy(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    const int flags = ::fcntl(descriptor, F_GETFL);
    if (!copy || ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0 || flags < 0 ||
        ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != 0) {
        throw PosixError(shown, errno);
    }
    return copy;
}

}  // namespace

PassedDescriptors PassedByEnvironment(pid_t process) {
    // More than a program may have open cannot have been passed.
    constexpr long kMost = 1 << 20;
    const std::optional<long> count = NumberIn("LISTEN_FDS");
    if (NumberIn("LISTEN_PID") != process || !count || *count < 0 || *count > kMost) {
        return {};
    }
    return {kFirstPassed, static_cast<int>(*count)};
}

UniqueFd PassedSocket(const RuntimeDirectory& directory, const std::string& name,
                      const PassedDescriptors& passed) {
    for (int descriptor = passed.first; descriptor < passed.first + passed.count; ++descriptor) {
        const std::string path = BoundPath(descriptor);
        if (IsIn(directory, name, path)) {
            return Prepare(descriptor, path);
        }
    }
    return {};
}

}  // namespace zam_platform
