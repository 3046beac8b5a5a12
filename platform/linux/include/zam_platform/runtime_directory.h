#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "zam_platform/unique_fd.h"

/// The directory in which services have their sockets, and the rules that it must keep. Used by
/// both halves. Every function may block in the file system; thread-safe.

namespace zam_platform {

/// Longest service name.
inline constexpr std::size_t kMaxServiceNameBytes = 64;

/// `$ZAM_RUNTIME_DIR`, else `$XDG_RUNTIME_DIR/zam_connector`, else `/run/zam_connector`. Both
/// variables are ignored in a set-user-id program.
std::string RuntimeDirectoryPath();

/// Throws `PlatformError` unless `name` is 1 to 64 of the letters, digits, `_`, `-` and `.`, with
/// no leading dot.
void CheckServiceName(std::string_view name);

/// An opened directory that has passed the checks.
class RuntimeDirectory {
public:
    /// Opens `path`, which must be absolute and whose last component must be no symbolic link.
    /// The directory must belong to the caller, to root or to the service user that this build was
    /// configured with, and be writable by its owner alone. Throws `PlatformError`, which names
    /// the rule and the path.
    explicit RuntimeDirectory(std::string path);

    const std::string& Path() const noexcept { return path_; }
    int Descriptor() const noexcept { return directory_.Get(); }
    uid_t Owner() const noexcept { return owner_; }

    /// `name` inside this directory, by way of its descriptor: short enough for a socket address
    /// however long the path is, and the same directory even when the path is replaced.
    std::string PathThroughDescriptor(std::string_view name) const;

private:
    std::string path_;
    UniqueFd directory_;
    uid_t owner_ = 0;
};

/// File name of a service's socket.
std::string SocketName(std::string_view service);

/// The rule for a directory's owner; `kNoServiceUser` when no such user is configured or known.
inline constexpr uid_t kNoServiceUser = static_cast<uid_t>(-1);
bool IsTrustedOwner(uid_t owner, uid_t caller, uid_t serviceUser) noexcept;

}  // namespace zam_platform
