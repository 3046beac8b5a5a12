#include "storage/new_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace zam_storage {
namespace {

constexpr mode_t kPermissions = 0777;

std::error_code LastError() noexcept {
    return {errno, std::generic_category()};
}

}  // namespace

std::error_code WriteAll(int file, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return LastError();
        }
    }
    return {};
}

std::error_code SyncFile(int file) noexcept {
    while (::fsync(file) != 0) {
        if (errno != EINTR) {
            return LastError();
        }
    }
    return {};
}

std::error_code SyncFolderOf(const std::string& path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    const int descriptor =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return LastError();
    }
    const std::error_code error = SyncFile(descriptor);
    ::close(descriptor);
    return error;
}

std::error_code CopyPermissions(const std::string& path, int file) noexcept {
    struct stat before {};
    if (::stat(path.c_str(), &before) == 0 && ::fchmod(file, before.st_mode & kPermissions) != 0) {
        return LastError();
    }
    return {};
}

NewFile::~NewFile() {
    if (file_ >= 0) {
        ::close(file_);
    }
    if (!name_.empty()) {
        ::unlinkat(folder_, name_.c_str(), 0);
    }
}

std::error_code NewFile::Create(const std::string& name, mode_t mode) {
    std::string made = name;  // before there is a file that would have to be removed
    file_ = ::openat(folder_, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (file_ < 0) {
        return LastError();
    }
    name_ = std::move(made);
    return {};
}

Replacement NewFile::Replace(const std::string& name) {
    if (const std::error_code error = SyncFile(file_)) {
        return {.isInPlace = false, .error = error};
    }
    if (::renameat(folder_, name_.c_str(), folder_, name.c_str()) != 0) {
        return {.isInPlace = false, .error = LastError()};
    }
    name_.clear();
    return {.isInPlace = true,
            .error = folder_ == AT_FDCWD ? SyncFolderOf(name) : SyncFile(folder_)};
}

}  // namespace zam_storage
