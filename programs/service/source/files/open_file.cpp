#include "files/open_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <xxhash.h>

#include <array>
#include <cerrno>

#include "files/beneath.h"
#include "result_codes.h"
#include "zam_platform/posix_error.h"

namespace zam_service {
namespace {

FileStamp StampFrom(const struct stat& status) {
    return {.device = status.st_dev,
            .inode = status.st_ino,
            .sizeBytes = static_cast<std::uint64_t>(status.st_size),
            .modifiedS = status.st_mtim.tv_sec,
            .modifiedNs = status.st_mtim.tv_nsec,
            .changedS = status.st_ctim.tv_sec,
            .changedNs = status.st_ctim.tv_nsec};
}

int CodeOf(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG:
            return kNotFound;
        case ELOOP:
        case EXDEV:
        case EACCES:
        case EPERM:
        case ENXIO:
            return kAccessDenied;
        case EMFILE:
        case ENFILE:
        case ENOMEM:
            return kInsufficientResources;
        default:
            return kMediaError;
    }
}

FolderFiles::Directory OpenData(const FolderFiles& files) {
    try {
        return files.Open();
    } catch (const zam_platform::PlatformError& error) {
        throw FileError(kMediaError, error.what());
    }
}

std::string BelowData(const std::string& path) {
    return fmt::format("{}/{}", kFilesFolder, path);
}

}  // namespace

void WriteVersion(const FileStamp& stamp, unsigned char* to) noexcept {
    const std::array<std::uint64_t, 7> numbers = {stamp.device,
                                                  stamp.inode,
                                                  stamp.sizeBytes,
                                                  static_cast<std::uint64_t>(stamp.modifiedS),
                                                  static_cast<std::uint64_t>(stamp.modifiedNs),
                                                  static_cast<std::uint64_t>(stamp.changedS),
                                                  static_cast<std::uint64_t>(stamp.changedNs)};
    constexpr char kDigits[] = "0123456789abcdef";
    std::uint64_t hash = ::XXH3_64bits(numbers.data(), sizeof(numbers));
    for (std::size_t digit = kVersionBytes; digit-- > 0; hash >>= 4U) {
        to[digit] = static_cast<unsigned char>(kDigits[hash & 0xFU]);
    }
}

OpenFilePtr OpenServed(const FolderFiles& files, const std::string& path) {
    const auto data = OpenData(files);
    const std::string name = BelowData(path);
    auto file = std::make_shared<OpenFile>();
    OpenedBeneath opened = OpenPathBeneath(data->Get(), name);
    const std::string shown = fmt::format("'{}/{}'", files.Path(), name);
    if (opened.error == ELOOP) {
        throw FileError(kAccessDenied,
                        shown + ": is, or leads through, a symbolic link, and none is followed");
    }
    if (opened.error != 0) {
        throw FileError(CodeOf(opened.error), zam_platform::PosixError(shown, opened.error).what());
    }
    struct stat status {};
    if (::fstat(opened.file.Get(), &status) != 0) {
        throw FileError(kMediaError, zam_platform::PosixError(shown, errno).what());
    }
    if (!S_ISREG(status.st_mode)) {
        throw FileError(kAccessDenied, shown + ": is no regular file");
    }
    file->path = path;
    file->descriptor = std::move(opened.file);
    file->opened = StampFrom(status);
    return file;
}

FileStamp StampOf(const OpenFile& file) {
    struct stat status {};
    if (::fstat(file.descriptor.Get(), &status) != 0) {
        throw FileError(kMediaError, zam_platform::PosixError(file.path, errno).what());
    }
    return StampFrom(status);
}

bool IsInPlace(const FolderFiles& files, const OpenFile& file) {
    // A folder on the way may have become a link: then the file that it leads to is at most looked
    // at, and served only when it is the one that was reached without a link.
    struct stat status {};
    return ::fstatat(OpenData(files)->Get(), BelowData(file.path).c_str(), &status,
                     AT_SYMLINK_NOFOLLOW) == 0 &&
           StampFrom(status).IsSameFile(file.opened);
}

}  // namespace zam_service
