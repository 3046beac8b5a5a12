#pragma once

#include <string>

#include "zam_platform/runtime_directory.h"
#include "zam_platform/unique_fd.h"

namespace zam_platform {

/// Makes the runtime directory when it does not exist (its last component only, writable by its
/// owner alone), opens and checks it. Throws `PlatformError`.
RuntimeDirectory PrepareRuntimeDirectory(const std::string& path);

/// The right to be the one daemon of a runtime directory, for as long as the object lives.
class DirectoryLock {
public:
    /// Throws `PlatformError` when another process holds the lock.
    explicit DirectoryLock(const RuntimeDirectory& directory);

private:
    UniqueFd file_;
};

/// A service's socket, listening. It appears under its name only when it listens, and replaces what
/// a daemon that was killed has left there. Where a service manager has passed a socket of that
/// name (`LISTEN_FDS`), it is that one, and who may connect is the manager's affair.
class ListeningSocket {
public:
    /// `directory` must outlive this object, and its lock be held. With `openToAll` every user may
    /// connect, and the server decides who is served; otherwise only the own user and root can.
    /// Throws `PlatformError`.
    ListeningSocket(const RuntimeDirectory& directory, const std::string& service, bool openToAll);
    ListeningSocket(ListeningSocket&&) = default;
    ListeningSocket& operator=(ListeningSocket&&) = delete;

    /// Removes the socket's name, unless the socket was passed.
    ~ListeningSocket();

    /// Gives the descriptor away.
    int Release() noexcept { return socket_.Release(); }

private:
    const RuntimeDirectory* directory_;
    std::string name_;
    UniqueFd socket_;
};

}  // namespace zam_platform
