#include "data/file_io.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "storage/new_file.h"
#include "zam_platform/posix_error.h"

namespace zam_service {

using zam_platform::PlatformError;
using zam_platform::PosixError;
using zam_platform::UniqueFd;

namespace {

/// What clients sent is the owner's and the group's to read.
constexpr mode_t kFileMode = 0640;
constexpr std::size_t kReadBytes = std::size_t{64} << 10U;

void Check(const std::error_code& error, const std::string& shown) {
    if (error) {
        throw PosixError(shown, error.value());
    }
}

}  // namespace

UniqueFd OpenBeneath(int directory, const std::string& name, int flags, const std::string& shown) {
    // Not blocking: a pipe that somebody has put there must not hold up a worker.
    UniqueFd file(
        ::openat(directory, name.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kFileMode));
    if (!file && errno != ENOENT) {
        const int error = errno;
        if (error == ELOOP) {
            throw PlatformError(
                zam_platform::kStatusUntrusted,
                fmt::format("{}: is a symbolic link; only regular files are read", shown));
        }
        throw PosixError(shown, error);
    }
    return file;
}

std::size_t CheckRegular(int file, const std::string& shown) {
    struct stat status {};
    if (::fstat(file, &status) != 0) {
        throw PosixError(shown, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw PlatformError(zam_platform::kStatusUntrusted,
                            fmt::format("{}: is no regular file", shown));
    }
    return static_cast<std::size_t>(status.st_size);
}

std::string ReadWhole(int file, std::size_t limit, const std::string& shown) {
    std::string bytes;
    // Room for all of it: a file that holds a secret is not to leave pieces of it in the heap.
    struct stat status {};
    if (::fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
        bytes.reserve(std::min(static_cast<std::size_t>(status.st_size), limit) + kReadBytes);
    }
    for (;;) {
        const std::size_t have = bytes.size();
        // One byte more than allowed tells a file that is too large, also one that still grows.
        bytes.resize(std::min(have + kReadBytes, limit + 1));
        const ssize_t got = ::read(file, bytes.data() + have, bytes.size() - have);
        if (got < 0 && errno != EINTR) {
            throw PosixError(shown, errno);
        }
        bytes.resize(have + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (bytes.size() > limit) {
            throw PlatformError(
                zam_platform::kStatusRequestTooLarge,
                fmt::format("{}: has more than the {} bytes allowed", shown, limit));
        }
        if (got == 0) {
            return bytes;
        }
    }
}

void WriteWhole(int file, std::string_view bytes, const std::string& shown) {
    Check(zam_storage::WriteAll(file, bytes), shown);
}

std::string UnfinishedName(const std::string& name) {
    return "." + name + ".new";
}

void ReplaceFile(int directory, const std::string& name, std::string_view bytes,
                 const std::string& shown) {
    const std::string unfinished = UnfinishedName(name);
    // What a daemon that was killed has left; a link in its place must not be written through.
    ::unlinkat(directory, unfinished.c_str(), 0);
    zam_storage::NewFile file(directory);
    Check(file.Create(unfinished, kFileMode), shown);
    WriteWhole(file.Descriptor(), bytes, shown);
    Check(file.Replace(name).error, shown);
}

void Sync(int file, const std::string& shown) {
    Check(zam_storage::SyncFile(file), shown);
}

}  // namespace zam_service
