#include "data/folder_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "data/file_io.h"
#include "zam_platform/posix_error.h"

namespace zam_service {

using zam_platform::PlatformError;
using zam_platform::PosixError;
using zam_platform::UniqueFd;

namespace {

/// What clients sent is the owner's and the group's to read.
constexpr mode_t kFolderMode = 0750;

std::string Resolve(const std::string& path) {
    char* const resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr) {
        throw PosixError(fmt::format("data folder '{}'", path), errno);
    }
    std::string result = resolved;
    std::free(resolved);
    return result;
}

UniqueFd OpenDirectory(const std::string& path) {
    return UniqueFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

FolderFiles::FolderFiles(const std::string& path) : path_(Resolve(path)) {
    auto directory = std::make_shared<UniqueFd>(OpenDirectory(path_));
    if (!*directory) {
        throw PosixError(fmt::format("data folder '{}'", path_), errno);
    }
    directory_ = std::move(directory);
}

std::optional<std::string> FolderFiles::Read(const std::string& name, std::size_t maxBytes) const {
    const Directory directory = Open();
    const std::string shown = Shown(name);
    const UniqueFd file = OpenBeneath(directory->Get(), name, O_RDONLY, shown);
    if (!file) {
        return std::nullopt;
    }
    const std::size_t size = CheckRegular(file.Get(), shown);
    if (size > maxBytes) {
        throw PlatformError(
            zam_platform::kStatusRequestTooLarge,
            fmt::format("{}: has {} bytes, more than the {} allowed", shown, size, maxBytes));
    }
    return ReadWhole(file.Get(), maxBytes, shown);
}

bool FolderFiles::Exists(const std::string& name) const noexcept {
    const qor::MutexLock lock(mutex_);
    struct stat found {};
    return directory_ != nullptr &&
           ::fstatat(directory_->Get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0;
}

void FolderFiles::Write(const std::string& name, std::string_view bytes) const {
    const Directory directory = Open();
    const std::string shown = Shown(name);
    ReplaceFile(directory->Get(), name, bytes, shown);
}

UniqueFd FolderFiles::OpenFolder(const std::string& name) const {
    const Directory directory = Open();
    const std::string shown = Shown(name);
    UniqueFd folder = OpenBeneath(directory->Get(), name, O_RDONLY | O_DIRECTORY, shown);
    if (!folder) {
        if (::mkdirat(directory->Get(), name.c_str(), kFolderMode) != 0 && errno != EEXIST) {
            throw PosixError(shown, errno);
        }
        Sync(directory->Get(), shown);
        folder = OpenBeneath(directory->Get(), name, O_RDONLY | O_DIRECTORY, shown);
        if (!folder) {
            throw PosixError(shown, ENOENT);
        }
    }
    return folder;
}

FolderFiles::Directory FolderFiles::Open() const {
    const qor::MutexLock lock(mutex_);
    if (directory_ == nullptr) {
        throw PlatformError(zam_platform::kStatusUnavailable,
                            fmt::format("data folder '{}' is not there", path_));
    }
    return directory_;
}

bool FolderFiles::IsInPlace() const noexcept {
    const qor::MutexLock lock(mutex_);
    struct stat opened {};
    struct stat named {};
    return directory_ != nullptr && ::fstat(directory_->Get(), &opened) == 0 &&
           ::lstat(path_.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

void FolderFiles::Detach() {
    const qor::MutexLock lock(mutex_);
    directory_ = nullptr;
}

bool FolderFiles::IsAway() const {
    const qor::MutexLock lock(mutex_);
    return directory_ == nullptr;
}

bool FolderFiles::Reopen() {
    auto directory = std::make_shared<UniqueFd>(OpenDirectory(path_));
    if (!*directory) {
        return false;
    }
    const qor::MutexLock lock(mutex_);
    directory_ = std::move(directory);
    return true;
}

std::string FolderFiles::Shown(const std::string& name) const {
    return fmt::format("'{}/{}'", path_, name);
}

}  // namespace zam_service
