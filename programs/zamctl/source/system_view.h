#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "vd/runtime_directory.h"

namespace zamctl {

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

    /// What the library finds of the directory of the services' sockets, and of these sockets.
    virtual vd::RuntimeDirectoryDiagnosis RuntimeDirectory(
        const std::vector<std::string>& services) const = 0;

    /// The user that this process acts as.
    virtual uid_t User() const = 0;

    /// Name of a user; empty when the system knows none.
    virtual std::string UserName(uid_t user) const = 0;

    /// In the order in which they were loaded; none when they are part of the program itself.
    virtual std::vector<LoadedLibrary> Libraries() const = 0;

    /// Whether standard error is a terminal.
    virtual bool ErrIsTerminal() const = 0;
};

/// This machine and this process.
class HostSystemView final : public SystemView {
public:
    std::optional<std::string> Variable(const char* name) const override;
    vd::RuntimeDirectoryDiagnosis RuntimeDirectory(
        const std::vector<std::string>& services) const override;
    uid_t User() const override;
    std::string UserName(uid_t user) const override;
    std::vector<LoadedLibrary> Libraries() const override;
    bool ErrIsTerminal() const override;
};

}  // namespace zamctl
