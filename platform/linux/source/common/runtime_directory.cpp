#include "zam_platform/runtime_directory.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "zam_platform/posix_error.h"

namespace zam_platform {
namespace {

using vd::FileFault;

constexpr char kServiceUserName[] = ZAM_SERVICE_USER;

/// The configured service user's id. Looked up once: it is a system account.
uid_t ServiceUser() {
    static const uid_t user = [] {
        std::array<char, 4096> buffer{};
        passwd entry{};
        passwd* found = nullptr;
        if (::getpwnam_r(kServiceUserName, &entry, buffer.data(), buffer.size(), &found) != 0 ||
            found == nullptr) {
            return kNoServiceUser;
        }
        return found->pw_uid;
    }();
    return user;
}

bool IsNameCharacter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '_' || character == '-' ||
           character == '.';
}

/// One directory has one path, and a symbolic link stays the last component: with a slash behind
/// it, the kernel would follow it.
std::string WithoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

/// Opens the file at `file.path` itself, without following a link in its place: what is checked is
/// what is used afterwards.
void LookAt(ExaminedFile& file, int directory) {
    file.descriptor.Reset(::openat(directory, file.path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!file.descriptor || ::fstat(file.descriptor.Get(), &file.status) != 0) {
        file.error = errno;
        file.fault = file.error == ENOENT ? FileFault::Missing : FileFault::NotReadable;
    }
}

/// The user database is only asked about owners that need it: it may be slow.
bool IsTrustedHere(uid_t owner) {
    return IsTrustedOwner(owner, ::geteuid(), kNoServiceUser) ||
           IsTrustedOwner(owner, ::geteuid(), ServiceUser());
}

/// The error for a directory that breaks a rule.
PlatformError Refusal(const ExaminedFile& directory) {
    const std::string shown = fmt::format("runtime directory '{}'", directory.path);
    switch (directory.fault) {
        case FileFault::NotAbsolute:
            return {kStatusUntrusted, shown + ": the path must be absolute"};
        case FileFault::Owner:
            return {kStatusUntrusted,
                    fmt::format("{}: belongs to user {}, not to user {}, root or the user '{}'",
                                shown, directory.status.st_uid, ::geteuid(), kServiceUserName)};
        case FileFault::OthersWrite:
            return {kStatusUntrusted,
                    fmt::format("{}: mode {:04o} lets others write; only its owner may", shown,
                                directory.status.st_mode & 07777U)};
        case FileFault::Missing:
        case FileFault::NotReadable:
            if (directory.error != ELOOP && directory.error != ENOTDIR) {
                return PosixError(shown, directory.error);
            }
            break;  // the path goes through what is no directory
        case FileFault::SymbolicLink:
        case FileFault::WrongKind:
        case FileFault::None:
            break;
    }
    return {kStatusUntrusted, shown + ": must be a directory and no symbolic link"};
}

}  // namespace

RuntimeDirectoryChoice ChooseRuntimeDirectory() {
    if (const char* const own = ::secure_getenv("ZAM_RUNTIME_DIR"); own != nullptr) {
        return {WithoutTrailingSlashes(own), "ZAM_RUNTIME_DIR"};
    }
    if (const char* const xdg = ::secure_getenv("XDG_RUNTIME_DIR");
        xdg != nullptr && *xdg != '\0') {
        return {std::string(xdg) + "/zam_connector",
                "XDG_RUNTIME_DIR, as ZAM_RUNTIME_DIR is not set"};
    }
    return {"/run/zam_connector",
            "the default, as neither ZAM_RUNTIME_DIR nor XDG_RUNTIME_DIR is set"};
}

std::string RuntimeDirectoryPath() {
    return ChooseRuntimeDirectory().path;
}

void CheckServiceName(std::string_view name) {
    if (name.empty()) {
        throw PlatformError(kStatusUnavailable, "service name is empty");
    }
    if (name.size() > kMaxServiceNameBytes) {
        throw PlatformError(kStatusUnavailable, fmt::format("service name of {} bytes exceeds {}",
                                                            name.size(), kMaxServiceNameBytes));
    }
    if (name.front() == '.') {
        throw PlatformError(kStatusUnavailable,
                            fmt::format("service name '{}' begins with a dot", name));
    }
    const auto* const wrong = std::find_if_not(name.begin(), name.end(), IsNameCharacter);
    if (wrong != name.end()) {
        throw PlatformError(
            kStatusUnavailable,
            fmt::format("service name has byte {:#04x} at {}; letters, digits, '_', '-' and '.' "
                        "are allowed",
                        static_cast<unsigned char>(*wrong), wrong - name.begin()));
    }
}

bool IsTrustedOwner(uid_t owner, uid_t caller, uid_t serviceUser) noexcept {
    return owner == 0 || owner == caller || (serviceUser != kNoServiceUser && owner == serviceUser);
}

ExaminedFile ExamineDirectory(std::string path) {
    ExaminedFile directory{.path = WithoutTrailingSlashes(std::move(path))};
    if (directory.path.empty() || directory.path.front() != '/') {
        directory.fault = FileFault::NotAbsolute;
        return directory;
    }
    LookAt(directory, AT_FDCWD);
    if (directory.fault != FileFault::None) {
        return directory;
    }
    if (S_ISLNK(directory.status.st_mode)) {
        directory.fault = FileFault::SymbolicLink;
    } else if (!S_ISDIR(directory.status.st_mode)) {
        directory.fault = FileFault::WrongKind;
    } else if (!IsTrustedHere(directory.status.st_uid)) {
        directory.fault = FileFault::Owner;
    } else if ((directory.status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        directory.fault = FileFault::OthersWrite;
    }
    return directory;
}

ExaminedFile ExamineSocket(int directory, uid_t directoryOwner, const std::string& name) {
    ExaminedFile socket{.path = name};
    LookAt(socket, directory);
    if (socket.fault != FileFault::None) {
        return socket;
    }
    if (!S_ISSOCK(socket.status.st_mode)) {
        socket.fault = FileFault::WrongKind;
    } else if (socket.status.st_uid != 0 && socket.status.st_uid != directoryOwner) {
        socket.fault = FileFault::Owner;
    }
    return socket;
}

RuntimeDirectory::RuntimeDirectory(std::string path) {
    ExaminedFile found = ExamineDirectory(std::move(path));
    if (found.fault != FileFault::None) {
        throw Refusal(found);
    }
    path_ = std::move(found.path);
    directory_ = std::move(found.descriptor);
    owner_ = found.status.st_uid;
}

std::string RuntimeDirectory::PathThroughDescriptor(std::string_view name) const {
    return fmt::format("/proc/self/fd/{}/{}", directory_.Get(), name);
}

std::string SocketName(std::string_view service) {
    return std::string(service) + ".sock";
}

}  // namespace zam_platform
