#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace zamctl {

/// As far as the rules for directories and sockets tell files apart.
enum class FileKind { Directory, Socket, SymbolicLink, Other };

struct FileStatus {
    FileKind kind = FileKind::Other;
    uid_t owner = 0;
    unsigned mode = 0;  ///< permission bits
};

/// A file's status, or why there is none.
struct FileLook {
    std::optional<FileStatus> status;
    bool missing = false;  ///< there is no such file
    std::string error;     ///< the system's text
};

/// A shared library of this package in the running process.
struct LoadedLibrary {
    std::string path;  ///< of the file itself, links resolved
};

/// What the commands see of the machine besides the service. `const` functions only; thread-safe as
/// long as nobody changes the environment.
class SystemView {
public:
    virtual ~SystemView() = default;

    /// An environment variable, as the library sees it: none in a set-user-id program.
    virtual std::optional<std::string> Variable(const char* name) const = 0;

    /// Looks at a file itself, not at what a link leads to.
    virtual FileLook Look(const std::string& path) const = 0;

    /// The user that this process acts as.
    virtual uid_t User() const = 0;

    /// Name of a user; empty when the system knows none.
    virtual std::string UserName(uid_t user) const = 0;

    /// The user that services of this machine run as, when there is such a user.
    virtual std::optional<uid_t> ServiceUser() const = 0;

    /// In the order in which they were loaded; none when they are part of the program itself.
    virtual std::vector<LoadedLibrary> Libraries() const = 0;

    /// Whether standard error is a terminal.
    virtual bool ErrIsTerminal() const = 0;
};

/// This machine and this process.
class HostSystemView final : public SystemView {
public:
    std::optional<std::string> Variable(const char* name) const override;
    FileLook Look(const std::string& path) const override;
    uid_t User() const override;
    std::string UserName(uid_t user) const override;
    std::optional<uid_t> ServiceUser() const override;
    std::vector<LoadedLibrary> Libraries() const override;
    bool ErrIsTerminal() const override;
};

}  // namespace zamctl
