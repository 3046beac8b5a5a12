#include "runtime_directory_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace zamctl {
namespace {

/// Whoever may write to the directory can put a socket of their own in place of the service's.
constexpr unsigned kOthersWrite = 0022;

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

Finding CheckChoice(const RuntimeDirectoryChoice& choice) {
    if (!choice.path.starts_with('/')) {
        return Problem(
            "runtime_dir",
            fmt::format("'{}', from {}, is no absolute path", choice.path, choice.reason),
            "Set ZAM_RUNTIME_DIR to the absolute path of the directory in which "
            "zam_connectord runs.");
    }
    return {"runtime_dir",
            FindingStatus::Ok,
            fmt::format("{}, from {}", choice.path, choice.reason),
            {},
            {{"path", choice.path}, {"from", choice.reason}}};
}

bool IsTrustedOwner(const SystemView& system, uid_t owner) {
    return owner == 0 || owner == system.User() || system.ServiceUser() == owner;
}

/// By the rules that the library keeps, with advice for each that is broken.
Finding CheckDirectory(const SystemView& system, const std::string& path, const FileLook& look) {
    if (!look.status) {
        return Problem("directory", fmt::format("{}: {}", path, look.error),
                       look.missing ? StartRemedy(path)
                                    : "Make the directory readable for this user, or run zamctl "
                                      "as a user who may read it.");
    }
    const FileStatus& status = *look.status;
    if (status.kind != FileKind::Directory) {
        return Problem(
            "directory",
            fmt::format("{} is {}", path,
                        status.kind == FileKind::SymbolicLink ? "a symbolic link" : "no directory"),
            "Set ZAM_RUNTIME_DIR to the directory itself.");
    }
    const std::string owner = ShowUser(system, status.owner);
    if (!IsTrustedOwner(system, status.owner)) {
        return Problem("directory",
                       fmt::format("{} belongs to {}, not to {}, root or the service's user", path,
                                   owner, ShowUser(system, system.User())),
                       "Run zamctl as the directory's owner, or set ZAM_RUNTIME_DIR to a "
                       "directory of your own in which zam_connectord runs.");
    }
    if ((status.mode & kOthersWrite) != 0) {
        return Problem(
            "directory",
            fmt::format("{}: mode {:04o} lets others write; only its owner may", path, status.mode),
            fmt::format("Run 'chmod go-w {}'.", path));
    }
    return {"directory",
            FindingStatus::Ok,
            fmt::format("exists, owner {}, mode {:04o}", owner, status.mode),
            {},
            {{"owner", status.owner}, {"mode", fmt::format("{:04o}", status.mode)}}};
}

Finding CheckSocket(const SystemView& system, const std::string& directory, uid_t directoryOwner,
                    const std::string& path) {
    const FileLook look = system.Look(path);
    if (!look.status) {
        return Problem("socket", fmt::format("{}: {}", path, look.error), StartRemedy(directory));
    }
    if (look.status->kind != FileKind::Socket) {
        return Problem("socket", fmt::format("{} is no socket", path),
                       "Move it away and start zam_connectord again.");
    }
    if (look.status->owner != 0 && look.status->owner != directoryOwner) {
        return Problem("socket",
                       fmt::format("{} belongs to {}, not to root or the directory's owner", path,
                                   ShowUser(system, look.status->owner)),
                       "Run zam_connectord as the directory's owner.");
    }
    return {"socket", FindingStatus::Ok, fmt::format("{} exists", path), {}, {{"path", path}}};
}

}  // namespace

RuntimeDirectoryChoice ChooseRuntimeDirectory(const SystemView& system) {
    // An empty one counts, as it does for the library: the mistake is shown, not passed over.
    if (const auto own = system.Variable("ZAM_RUNTIME_DIR")) {
        return {*own, "ZAM_RUNTIME_DIR"};
    }
    if (const auto session = system.Variable("XDG_RUNTIME_DIR"); session && !session->empty()) {
        return {*session + "/zam_connector", "XDG_RUNTIME_DIR, as ZAM_RUNTIME_DIR is not set"};
    }
    return {"/run/zam_connector",
            "the default, as neither ZAM_RUNTIME_DIR nor XDG_RUNTIME_DIR is set"};
}

std::vector<Finding> CheckRuntimeDirectory(const SystemView& system,
                                           const std::vector<std::string>& services) {
    const RuntimeDirectoryChoice choice = ChooseRuntimeDirectory(system);
    std::vector<Finding> findings = {CheckChoice(choice)};
    if (findings.back().status == FindingStatus::Problem) {
        return findings;
    }
    const FileLook look = system.Look(choice.path);
    findings.push_back(CheckDirectory(system, choice.path, look));
    if (look.status && look.status->kind == FileKind::Directory) {
        for (const std::string& service : services) {
            findings.push_back(CheckSocket(system, choice.path, look.status->owner,
                                           fmt::format("{}/{}.sock", choice.path, service)));
        }
    }
    return findings;
}

std::string ConnectRemedy(const SystemView& system, const std::string& service) {
    const std::vector<Finding> findings = CheckRuntimeDirectory(system, {service});
    const auto problem = std::find_if(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.status == FindingStatus::Problem;
    });
    const std::string directory = ChooseRuntimeDirectory(system).path;
    std::string start = StartRemedy(directory);
    if (problem == findings.end() || problem->remedy == start) {
        return start;
    }
    return fmt::format("{} The directory looked in is '{}'.", problem->remedy, directory);
}

}  // namespace zamctl
