#include "zam_platform/server/listening_socket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "server/passed_sockets.h"
#include "zam_platform/posix_error.h"

namespace zam_platform {
namespace {

constexpr char kLockName[] = "zam_connectord.lock";
constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kOwnSocketMode = 0600;
constexpr mode_t kOpenSocketMode = 0666;

}  // namespace

RuntimeDirectory PrepareRuntimeDirectory(const std::string& path) {
    // A relative path is refused below; nothing is to be made there first.
    const bool isAbsolute = !path.empty() && path.front() == '/';
    if (isAbsolute && ::mkdir(path.c_str(), kDirectoryMode) != 0 && errno != EEXIST) {
        throw PosixError(fmt::format("runtime directory '{}'", path), errno);
    }
    return RuntimeDirectory(path);
}

DirectoryLock::DirectoryLock(const RuntimeDirectory& directory)
    : file_(::openat(directory.Descriptor(), kLockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                     0600)) {
    const std::string shown = fmt::format("lock '{}/{}'", directory.Path(), kLockName);
    if (!file_) {
        throw PosixError(shown, errno);
    }
    if (::flock(file_.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw PlatformError(kStatusResources,
                                shown + ": another connector service serves this directory");
        }
        throw PosixError(shown, errno);
    }
}

ListeningSocket::ListeningSocket(const RuntimeDirectory& directory, const std::string& service,
                                 bool openToAll)
    : directory_(&directory) {
    CheckServiceName(service);
    const std::string name = SocketName(service);
    socket_ = PassedSocket(directory, name, PassedByEnvironment(::getpid()));
    if (socket_) {
        return;  // its name is the service manager's, and outlives this process
    }
    const std::string shown = fmt::format("socket '{}/{}'", directory.Path(), name);
    // A leading dot keeps the unfinished socket out of the names that a client may ask for.
    const std::string unfinished = "." + name + ".new";
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        throw PosixError(shown, errno);
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = directory.PathThroughDescriptor(unfinished);
    if (path.size() >= sizeof(address.sun_path)) {
        throw PlatformError(kStatusRequestTooLarge, shown + ": the name is too long");
    }
    path.copy(address.sun_path, path.size());
    ::unlinkat(directory.Descriptor(), unfinished.c_str(), 0);
    if (::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::fchmodat(directory.Descriptor(), unfinished.c_str(),
                   openToAll ? kOpenSocketMode : kOwnSocketMode, 0) != 0 ||
        ::listen(socket.Get(), SOMAXCONN) != 0 ||
        ::renameat(directory.Descriptor(), unfinished.c_str(), directory.Descriptor(),
                   name.c_str()) != 0) {
        const int error = errno;
        ::unlinkat(directory.Descriptor(), unfinished.c_str(), 0);
        throw PosixError(shown, error);
    }
    name_ = name;
    socket_ = std::move(socket);
}

ListeningSocket::~ListeningSocket() {
    if (!name_.empty()) {
        ::unlinkat(directory_->Descriptor(), name_.c_str(), 0);
    }
}

}  // namespace zam_platform
