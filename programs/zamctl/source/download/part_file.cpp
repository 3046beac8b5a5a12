#include "download/part_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "failure.h"
#include "printable.h"
#include "storage/new_file.h"

namespace zamctl {
namespace {

constexpr mode_t kNewFileMode = 0666;
constexpr std::size_t kReadBytes = std::size_t{1} << 20U;

/// Handing the disk its work in steps keeps the wait at the end short.
constexpr std::uint64_t kFlushBytes = std::uint64_t{16} << 20U;

/// An identity takes about 100 bytes.
constexpr std::size_t kMostIdentityBytes = 4096;

/// What others planted under the name is not followed, and a pipe there holds up nobody.
constexpr int kIdentityFlags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

/// How often the file is opened while others take it away; each of them has ended a download.
constexpr int kOpenAttempts = 100;

nlohmann::json IdentityDocument(const ContentIdentity& identity) {
    return {{"sha256", identity.sha256}, {"size", identity.sizeBytes}};
}

/// Empty when there is none that can be read.
std::string ReadIdentity(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | kIdentityFlags);
    if (file < 0) {
        return {};
    }
    std::string text(kMostIdentityBytes, '\0');
    const ssize_t got = ::read(file, text.data(), text.size());
    ::close(file);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return text;
}

}  // namespace

PartFile::PartFile(std::string target, const ContentIdentity& identity)
    : target_(std::move(target)), path_(target_ + ".part"), identityPath_(path_ + ".json") {
    try {
        OpenLocked();
        Open(identity);
    } catch (...) {
        Close();
        throw;
    }
}

PartFile::~PartFile() {
    Close();
}

void PartFile::Close() noexcept {
    if (file_ >= 0) {
        ::close(std::exchange(file_, -1));
    }
}

/// Between opening and locking, another download may put the file in its place or remove it. What
/// is locked then is its finished file, or one without a name: only what still has the name counts.
void PartFile::OpenLocked() {
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        Close();
        file_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kNewFileMode);
        struct stat opened {};
        if (file_ < 0 || ::fstat(file_, &opened) != 0) {
            Fail(path_, "opened", errno);
        }
        if (!S_ISREG(opened.st_mode)) {
            throw Failure(kExitFailed, fmt::format("{} is no regular file", Quote(path_)),
                          "Move it away: what has come of a download is kept under this name.");
        }
        if (::flock(file_, LOCK_EX | LOCK_NB) != 0) {
            break;
        }
        struct stat named {};
        if (::lstat(path_.c_str(), &named) == 0 && named.st_dev == opened.st_dev &&
            named.st_ino == opened.st_ino) {
            return;
        }
    }
    throw Failure(kExitFailed, fmt::format("{} is in use by another download", Quote(path_)),
                  "Wait for it, or write to another file.");
}

void PartFile::Open(const ContentIdentity& identity) {
    struct stat status {};
    if (::fstat(file_, &status) != 0) {
        Fail(path_, "opened", errno);
    }
    if (IsPartOf(identity) && std::cmp_less_equal(status.st_size, identity.sizeBytes)) {
        size_ = static_cast<std::uint64_t>(status.st_size);
    } else {
        if (::ftruncate(file_, 0) != 0) {
            Fail(path_, "written", errno);
        }
        WriteIdentity(identity);
    }
    flushed_ = size_;
    Reserve(identity.sizeBytes);
}

bool PartFile::IsPartOf(const ContentIdentity& identity) const {
    const nlohmann::json document =
        nlohmann::json::parse(ReadIdentity(identityPath_), nullptr, false);
    return document == IdentityDocument(identity);
}

/// The part is empty when this is written, so that a half identity does no harm.
void PartFile::WriteIdentity(const ContentIdentity& identity) const {
    const std::string text = IdentityDocument(identity).dump() + '\n';
    const int file =
        ::open(identityPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | kIdentityFlags, kNewFileMode);
    if (file < 0) {
        Fail(identityPath_, "written", errno);
    }
    const std::error_code error = zam_storage::WriteAll(file, text);
    ::close(file);
    if (error) {
        Fail(identityPath_, "written", error.value());
    }
}

/// Finds out at once when there is not enough room. The length stays what has come.
void PartFile::Reserve(std::uint64_t sizeBytes) {
    if (sizeBytes > size_ &&
        ::fallocate(file_, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(sizeBytes)) != 0 &&
        (errno == ENOSPC || errno == EFBIG || errno == EDQUOT)) {
        const int error = errno;
        if (size_ == 0) {
            Discard();
        }
        Fail(path_, "written", error);
    }
}

void PartFile::AddTo(zam_checksums::Sha256& hash) const {
    std::vector<std::byte> buffer(kReadBytes);
    for (std::uint64_t at = 0; at < size_;) {
        const ssize_t got =
            ::pread(file_, buffer.data(), std::min<std::uint64_t>(buffer.size(), size_ - at),
                    static_cast<off_t>(at));
        if (got <= 0) {
            if (got < 0 && errno == EINTR) {
                continue;
            }
            Fail(path_, "read", got < 0 ? errno : EIO);
        }
        hash.Add(std::span(buffer).first(static_cast<std::size_t>(got)));
        at += static_cast<std::uint64_t>(got);
    }
}

void PartFile::Append(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t written =
            ::pwrite(file_, bytes.data(), bytes.size(), static_cast<off_t>(size_));
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            Fail(path_, "written", errno);
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        size_ += static_cast<std::uint64_t>(written);
    }
    if (size_ - flushed_ >= kFlushBytes) {
        ::sync_file_range(file_, static_cast<off_t>(flushed_), static_cast<off_t>(size_ - flushed_),
                          SYNC_FILE_RANGE_WRITE);
        flushed_ = size_;
    }
}

void PartFile::Commit() {
    // A file whose permissions, or whose name after a crash, are others is still the right file.
    zam_storage::CopyPermissions(target_, file_);
    if (const std::error_code error = zam_storage::SyncFile(file_)) {
        Fail(path_, "written", error.value());
    }
    if (::rename(path_.c_str(), target_.c_str()) != 0) {
        Fail(path_, "put in its place", errno);
    }
    ::unlink(identityPath_.c_str());
    zam_storage::SyncFolderOf(target_);
}

void PartFile::Discard() noexcept {
    ::unlink(identityPath_.c_str());
    ::unlink(path_.c_str());
}

void PartFile::Fail(const std::string& path, const char* action, int error) {
    throw Failure(kExitFailed,
                  fmt::format("{} cannot be {}: {}", Quote(path), action,
                              std::generic_category().message(error)),
                  "See to it and run the same command again; the file itself is as it was.");
}

}  // namespace zamctl
