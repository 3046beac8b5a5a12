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

}  // namespace

std::string RuntimeDirectoryPath() {
    if (const char* const own = ::secure_getenv("ZAM_RUNTIME_DIR"); own != nullptr) {
        return WithoutTrailingSlashes(own);
    }
    if (const char* const xdg = ::secure_getenv("XDG_RUNTIME_DIR");
        xdg != nullptr && *xdg != '\0') {
        return std::string(xdg) + "/zam_connector";
    }
    return "/run/zam_connector";
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

RuntimeDirectory::RuntimeDirectory(std::string path)
    : path_(WithoutTrailingSlashes(std::move(path))) {
    if (path_.empty() || path_.front() != '/') {
        throw PlatformError(
            kStatusUntrusted,
            fmt::format("runtime directory '{}': the path must be absolute", path_));
    }
    directory_.Reset(::open(path_.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory_) {
        const int error = errno;
        if (error == ELOOP || error == ENOTDIR) {
            throw PlatformError(
                kStatusUntrusted,
                fmt::format("runtime directory '{}': must be a directory and no symbolic link",
                            path_));
        }
        throw PosixError(fmt::format("runtime directory '{}'", path_), error);
    }
    struct stat status {};
    if (::fstat(directory_.Get(), &status) != 0) {
        throw PosixError(fmt::format("runtime directory '{}'", path_), errno);
    }
    owner_ = status.st_uid;
    // The user database is only asked about owners that need it: it may be slow.
    if (!IsTrustedOwner(owner_, ::geteuid(), kNoServiceUser) &&
        !IsTrustedOwner(owner_, ::geteuid(), ServiceUser())) {
        throw PlatformError(kStatusUntrusted,
                            fmt::format("runtime directory '{}': belongs to user {}, not to user "
                                        "{}, root or the user '{}'",
                                        path_, owner_, ::geteuid(), kServiceUserName));
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw PlatformError(kStatusUntrusted,
                            fmt::format("runtime directory '{}': mode {:04o} lets others write; "
                                        "only its owner may",
                                        path_, status.st_mode & 07777U));
    }
}

std::string RuntimeDirectory::PathThroughDescriptor(std::string_view name) const {
    return fmt::format("/proc/self/fd/{}/{}", directory_.Get(), name);
}

std::string SocketName(std::string_view service) {
    return std::string(service) + ".sock";
}

}  // namespace zam_platform
