#include "download/part_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>
#include <vector>

#include "failure.h"
#include "printable.h"

namespace zamctl {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kNewFileMode = 0666;
constexpr mode_t kPermissions = 0777;
constexpr std::size_t kReadBytes = std::size_t{1} << 20U;

/// Handing the disk its work in steps keeps the wait at the end short.
constexpr std::uint64_t kFlushBytes = std::uint64_t{16} << 20U;

/// An identity takes about 100 bytes.
constexpr std::size_t kMostIdentityBytes = 4096;

void SyncFolder(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    const int descriptor =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        ::fsync(descriptor);
        ::close(descriptor);
    }
}

}  // namespace

PartFile::PartFile(std::string target, const ContentIdentity& identity)
    : target_(std::move(target)), path_(target_ + ".part"), identityPath_(path_ + ".json") {
    file_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kNewFileMode);
    if (file_ < 0) {
        Fail("opened", errno);
    }
    try {
        Open(identity);
    } catch (...) {
        ::close(file_);
        throw;
    }
}

PartFile::~PartFile() {
    ::close(file_);
}

void PartFile::Open(const ContentIdentity& identity) {
    struct stat status {};
    if (::fstat(file_, &status) != 0) {
        Fail("opened", errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure(kExitFailed, fmt::format("{} is no regular file", Quote(path_)),
                      "Move it away: what has come of a download is kept under this name.");
    }
    if (::flock(file_, LOCK_EX | LOCK_NB) != 0) {
        throw Failure(kExitFailed, fmt::format("{} is in use by another download", Quote(path_)),
                      "Wait for it, or write to another file.");
    }
    if (IsPartOf(identity) && std::cmp_less_equal(status.st_size, identity.sizeBytes)) {
        size_ = static_cast<std::uint64_t>(status.st_size);
    } else {
        if (::ftruncate(file_, 0) != 0) {
            Fail("written", errno);
        }
        WriteIdentity(identity);
    }
    flushed_ = size_;
    Reserve(identity.sizeBytes);
}

bool PartFile::IsPartOf(const ContentIdentity& identity) const {
    std::ifstream in(identityPath_, std::ios::binary);
    std::string text(kMostIdentityBytes, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    const nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
    return document == nlohmann::json({{"sha256", identity.sha256}, {"size", identity.sizeBytes}});
}

/// The part is empty when this is written, so that a half identity does no harm.
void PartFile::WriteIdentity(const ContentIdentity& identity) const {
    const nlohmann::json document = {{"sha256", identity.sha256}, {"size", identity.sizeBytes}};
    std::ofstream out(identityPath_, std::ios::binary | std::ios::trunc);
    out << document.dump() << '\n' << std::flush;
    if (!out) {
        Fail("written", EIO);
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
        Fail("written", error);
    }
}

void PartFile::AddTo(Sha256& hash) const {
    std::vector<std::byte> buffer(kReadBytes);
    for (std::uint64_t at = 0; at < size_;) {
        const ssize_t got =
            ::pread(file_, buffer.data(), std::min<std::uint64_t>(buffer.size(), size_ - at),
                    static_cast<off_t>(at));
        if (got <= 0) {
            if (got < 0 && errno == EINTR) {
                continue;
            }
            Fail("read", got < 0 ? errno : EIO);
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
            Fail("written", errno);
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
    struct stat before {};
    if (::stat(target_.c_str(), &before) == 0) {
        ::fchmod(file_, before.st_mode & kPermissions);
    }
    if (::fsync(file_) != 0) {
        Fail("written", errno);
    }
    if (::rename(path_.c_str(), target_.c_str()) != 0) {
        Fail("put in its place", errno);
    }
    ::unlink(identityPath_.c_str());
    SyncFolder(target_);
}

void PartFile::Discard() noexcept {
    ::unlink(identityPath_.c_str());
    ::unlink(path_.c_str());
}

void PartFile::Fail(const char* action, int error) const {
    throw Failure(kExitFailed,
                  fmt::format("{} cannot be {}: {}", Quote(path_), action,
                              std::generic_category().message(error)),
                  "See to it and run the same command again; the file itself is as it was.");
}

}  // namespace zamctl
