#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <string_view>

#include "vd/runtime_directory.h"
#include "zam_platform/unique_fd.h"

/// The directory in which services have their sockets, and the rules that it must keep. Used by
/// both halves. Every function may block in the file system; thread-safe.

namespace zam_platform {

/// Longest service name.
inline constexpr std::size_t kMaxServiceNameBytes = 64;

struct RuntimeDirectoryChoice {
    std::string path;
    const char* origin;  ///< what chose it, as in `vd::RuntimeDirectoryDiagnosis`; static
};

/// `$ZAM_RUNTIME_DIR`, else `$XDG_RUNTIME_DIR/zam_connector`, else `/run/zam_connector`. Both
/// variables are ignored in a set-user-id program.
RuntimeDirectoryChoice ChooseRuntimeDirectory();

/// The path of that choice.
std::string RuntimeDirectoryPath();

/// Throws `PlatformError` unless `name` is 1 to 64 of the letters, digits, `_`, `-` and `.`, with
/// no leading dot.
void CheckServiceName(std::string_view name);

/// A file as it was found, and the first rule that it breaks.
struct ExaminedFile {
    std::string path;
    UniqueFd descriptor{};  ///< for its place alone (`O_PATH`); empty when it was not opened
    vd::FileFault fault = vd::FileFault::None;
    int error = 0;          ///< errno of `Missing` and `NotReadable`
    struct stat status {};  ///< zeros when the file could not be looked at
};

/// All rules for the directory: whoever uses it or tells about it asks here. Its path must be
/// absolute, slashes at its end are left out, and its last component must be no symbolic link. It
/// must belong to the caller, to root or to the service user that this build was configured with,
/// and be writable by its owner alone.
ExaminedFile ExamineDirectory(std::string path);

/// All rules for a socket in an opened directory: it must be one, no link to one, and belong to
/// root or to the directory's owner. `name` is the file's name.
ExaminedFile ExamineSocket(int directory, uid_t directoryOwner, const std::string& name);

/// An opened directory that has passed the checks.
class RuntimeDirectory {
public:
    /// Opens `path`. Throws `PlatformError`, which names the path and the rule of
    /// `ExamineDirectory` that it breaks.
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
