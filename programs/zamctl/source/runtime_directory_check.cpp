#include "runtime_directory_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "printable.h"

namespace zamctl {
namespace {

using vd::FileDiagnosis;
using vd::FileFault;

std::string StartRemedy(const std::string& directory) {
    return fmt::format(
        "Start zam_connectord for the directory '{}', or set ZAM_RUNTIME_DIR to the directory in "
        "which it runs.",
        directory);
}

std::string ShowUser(const SystemView& system, uid_t user) {
    const std::string name = system.UserName(user);
    return name.empty() ? fmt::format("user {}", user) : fmt::format("user {} ({})", name, user);
}

Finding Problem(std::string check, std::string text, std::string remedy) {
    return {std::move(check), FindingStatus::Problem, std::move(text), std::move(remedy), {}};
}

/// A path as a word of a POSIX shell; none when a terminal would not show it as it is.
std::optional<std::string> ShellWord(const std::string& path) {
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:@%";
    if (path.find_first_not_of(kPlain) == std::string::npos) {
        return path;
    }
    if (PrintableLine(path) != path) {
        return std::nullopt;
    }
    std::string word = "'";
    for (const char letter : path) {
        word += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return word + '\'';
}

/// What to do about a directory that others may write. A sticky one is meant for all, and one of
/// root's may be part of the system: neither is to be changed for this.
std::string CloseRemedy(const FileDiagnosis& directory) {
    constexpr unsigned kSticky = 01000;
    if ((directory.mode & kSticky) != 0 || directory.owner == 0) {
        return "Set ZAM_RUNTIME_DIR to a directory that only its owner may write, in which "
               "zam_connectord runs.";
    }
    const std::optional<std::string> word = ShellWord(directory.path);
    if (!word) {
        return "Take from others the right to write the directory.";
    }
    // Marks around quotation marks would end them.
    return *word == directory.path ? fmt::format("Run 'chmod go-w {}'.", *word)
                                   : fmt::format("Run: chmod go-w {}", *word);
}

Finding CheckChoice(const vd::RuntimeDirectoryDiagnosis& found) {
    const std::string& path = found.directory.path;
    if (found.directory.fault == FileFault::NotAbsolute) {
        return Problem("runtime_dir",
                       fmt::format("'{}', from {}, is no absolute path", path, found.origin),
                       "Set ZAM_RUNTIME_DIR to the absolute path of the directory in which "
                       "zam_connectord runs.");
    }
    return {"runtime_dir",
            FindingStatus::Ok,
            fmt::format("{}, from {}", path, found.origin),
            {},
            {{"path", path}, {"from", found.origin}}};
}

Finding CheckDirectory(const SystemView& system, const FileDiagnosis& directory) {
    const std::string& path = directory.path;
    switch (directory.fault) {
        case FileFault::Missing:
            return Problem("directory", fmt::format("{}: {}", path, directory.error),
                           StartRemedy(path));
        case FileFault::NotReadable:
            return Problem("directory", fmt::format("{}: {}", path, directory.error),
                           "Make the directory readable for this user, or run zamctl as a user "
                           "who may read it.");
        case FileFault::SymbolicLink:
            return Problem("directory", fmt::format("{} is a symbolic link", path),
                           "Set ZAM_RUNTIME_DIR to the directory itself.");
        case FileFault::WrongKind:
            return Problem("directory", fmt::format("{} is no directory", path),
                           "Set ZAM_RUNTIME_DIR to the directory itself.");
        case FileFault::Owner:
            return Problem(
                "directory",
                fmt::format("{} belongs to {}, not to {}, root or the service's user", path,
                            ShowUser(system, directory.owner), ShowUser(system, system.User())),
                "Run zamctl as the directory's owner, or set ZAM_RUNTIME_DIR to a "
                "directory of your own in which zam_connectord runs.");
        case FileFault::OthersWrite:
            return Problem("directory",
                           fmt::format("{}: mode {:04o} lets others write; only its owner may",
                                       path, directory.mode),
                           CloseRemedy(directory));
        case FileFault::NotAbsolute:
        case FileFault::None:
            break;
    }
    return {"directory",
            FindingStatus::Ok,
            fmt::format("exists, owner {}, mode {:04o}", ShowUser(system, directory.owner),
                        directory.mode),
            {},
            {{"owner", directory.owner}, {"mode", fmt::format("{:04o}", directory.mode)}}};
}

Finding CheckSocket(const SystemView& system, const std::string& directory,
                    const FileDiagnosis& socket) {
    const std::string& path = socket.path;
    switch (socket.fault) {
        case FileFault::Missing:
        case FileFault::NotReadable:
            return Problem("socket", fmt::format("{}: {}", path, socket.error),
                           StartRemedy(directory));
        case FileFault::WrongKind:
            return Problem("socket", fmt::format("{} is no socket", path),
                           "Move it away and start zam_connectord again.");
        case FileFault::Owner:
            return Problem("socket",
                           fmt::format("{} belongs to {}, not to root or the directory's owner",
                                       path, ShowUser(system, socket.owner)),
                           "Run zam_connectord as the directory's owner.");
        default:  // the rest are rules for directories
            break;
    }
    return {"socket", FindingStatus::Ok, fmt::format("{} exists", path), {}, {{"path", path}}};
}

std::vector<Finding> FindingsOf(const SystemView& system,
                                const vd::RuntimeDirectoryDiagnosis& found) {
    if (found.origin.empty()) {
        return {};  // services of this platform have no such directory
    }
    std::vector<Finding> findings = {CheckChoice(found)};
    if (findings.back().status == FindingStatus::Problem) {
        return findings;
    }
    findings.push_back(CheckDirectory(system, found.directory));
    for (const FileDiagnosis& socket : found.sockets) {
        findings.push_back(CheckSocket(system, found.directory.path, socket));
    }
    return findings;
}

}  // namespace

std::vector<Finding> CheckRuntimeDirectory(const SystemView& system,
                                           const std::vector<std::string>& services) {
    return FindingsOf(system, system.RuntimeDirectory(services));
}

std::string ConnectRemedy(const SystemView& system, const std::string& service) {
    const vd::RuntimeDirectoryDiagnosis found = system.RuntimeDirectory({service});
    if (found.origin.empty()) {
        return "Start the connector service.";
    }
    const std::vector<Finding> findings = FindingsOf(system, found);
    const auto problem = std::find_if(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.status == FindingStatus::Problem;
    });
    std::string start = StartRemedy(found.directory.path);
    if (problem == findings.end() || problem->remedy == start) {
        return start;
    }
    return fmt::format("{} The directory looked in is '{}'.", problem->remedy,
                       found.directory.path);
}

}  // namespace zamctl
