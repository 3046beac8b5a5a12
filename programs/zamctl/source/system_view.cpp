#include "system_view.h"

#include <link.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace zamctl {
namespace {

/// Room for the texts of one entry of the user database; entries are a few hundred bytes.
using UserBuffer = std::array<char, 16384>;

FileKind KindOf(mode_t mode) {
    if (S_ISDIR(mode)) {
        return FileKind::Directory;
    }
    if (S_ISSOCK(mode)) {
        return FileKind::Socket;
    }
    return S_ISLNK(mode) ? FileKind::SymbolicLink : FileKind::Other;
}

int CollectLibrary(dl_phdr_info* info, std::size_t /*size*/, void* collected) {
    const std::filesystem::path path(info->dlpi_name);
    if (path.filename().string().starts_with("libzam_")) {
        std::error_code error;
        const std::filesystem::path resolved = std::filesystem::canonical(path, error);
        static_cast<std::vector<LoadedLibrary>*>(collected)->push_back(
            {(error ? path : resolved).string()});
    }
    return 0;
}

}  // namespace

std::optional<std::string> HostSystemView::Variable(const char* name) const {
    // As the library asks: a caller's environment does not lead a program with more rights.
    const char* const value = ::secure_getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

FileLook HostSystemView::Look(const std::string& path) const {
    struct stat status {};
    // Not through links, which the library does not follow here either.
    if (::lstat(path.c_str(), &status) != 0) {
        const int error = errno;
        return {std::nullopt, error == ENOENT, std::generic_category().message(error)};
    }
    return {FileStatus{KindOf(status.st_mode), status.st_uid, status.st_mode & 07777U}, false, {}};
}

uid_t HostSystemView::User() const {
    return ::geteuid();
}

std::string HostSystemView::UserName(uid_t user) const {
    UserBuffer buffer{};
    passwd entry{};
    passwd* found = nullptr;
    ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
    return found == nullptr ? std::string() : found->pw_name;
}

std::optional<uid_t> HostSystemView::ServiceUser() const {
    UserBuffer buffer{};
    passwd entry{};
    passwd* found = nullptr;
    ::getpwnam_r(ZAM_SERVICE_USER, &entry, buffer.data(), buffer.size(), &found);
    return found == nullptr ? std::nullopt : std::optional<uid_t>(found->pw_uid);
}

std::vector<LoadedLibrary> HostSystemView::Libraries() const {
    std::vector<LoadedLibrary> libraries;
    ::dl_iterate_phdr(&CollectLibrary, &libraries);
    return libraries;
}

bool HostSystemView::ErrIsTerminal() const {
    return ::isatty(STDERR_FILENO) == 1;
}

}  // namespace zamctl
