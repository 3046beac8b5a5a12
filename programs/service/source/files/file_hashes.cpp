#include "files/file_hashes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <optional>
#include <span>
#include <utility>

#include "checksums/sha256.h"
#include "common/log.h"
#include "lanes.h"
#include "result_codes.h"
#include "zam_platform/posix_error.h"

namespace zam_service {
namespace {

using zam_connector::common::Here;
using zam_connector::common::Log;

constexpr char kSourceFile[] = "file_hashes";

constexpr std::size_t kBlockBytes = std::size_t{1} << 18U;

/// How often a file that changes while it is hashed is begun anew.
constexpr int kAttempts = 3;

/// SHA-256 of a file up to its end, whatever it is meanwhile; empty when `isCancelled`.
std::string HashContent(const OpenFile& file, const std::atomic<bool>& isCancelled) {
    zam_checksums::Sha256 hash;
    ::posix_fadvise(file.descriptor.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    std::vector<std::byte> block(kBlockBytes);
    for (off_t offset = 0; !isCancelled;) {
        const ssize_t got = ::pread(file.descriptor.Get(), block.data(), block.size(), offset);
        if (got < 0 && errno != EINTR) {
            throw FileError(kMediaError, zam_platform::PosixError(file.path, errno).what());
        }
        if (got == 0) {
            return hash.Digest();
        }
        if (got > 0) {
            hash.Add(std::span(block).first(static_cast<std::size_t>(got)));
            offset += got;
        }
    }
    return {};
}

/// Whether a file that changes from now on gets another stamp than this. By the clock that file
/// systems stamp with.
bool IsSettled(const FileStamp& stamp, std::chrono::milliseconds settleTime) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    const auto age = std::chrono::seconds(now.tv_sec - stamp.changedS) +
                     std::chrono::nanoseconds(now.tv_nsec - stamp.changedNs);
    return age >= settleTime;
}

}  // namespace

FileHashes::FileHashes(asio::io_context& loop, zam_platform::WorkerPool& workers,
                       std::chrono::milliseconds settleTime)
    : loop_(loop), workers_(workers), settleTime_(settleTime) {}

void FileHashes::Ask(uid_t user, const OpenFilePtr& file, Taker take) {
    const FileStamp stamp = StampOf(*file);
    if (const auto known = known_.find(stamp); known != known_.end()) {
        take({.code = kNoError, .stamp = stamp, .sha256 = known->second});
        return;
    }
    if (const auto making = waiting_.find(stamp); making != waiting_.end()) {
        making->second.push_back(std::move(take));
        return;
    }
    // Side by side, so that a large file does not hold up every small one.
    const Lane lane = stamp.inode % 2 == 0 ? kHashLane : kSecondHashLane;
    const bool posted = workers_.PostTo(
        loop_, lane, user, [this, file] { return Compute(*file); },
        [this, stamp](const std::optional<Outcome>& outcome) {
            if (outcome) {
                OnComputed(stamp, *outcome);
            } else {
                OnComputed(
                    stamp,
                    {.hashed = {.code = kInsufficientResources, .stamp = stamp, .sha256 = {}}});
            }
        });
    if (posted) {
        waiting_[stamp].push_back(std::move(take));
    } else {
        take({.code = kInsufficientResources, .stamp = stamp, .sha256 = {}});
    }
}

FileHashes::Outcome FileHashes::Compute(const OpenFile& file) const {
    Outcome outcome;
    HashedFile& hashed = outcome.hashed;
    try {
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            hashed.stamp = StampOf(file);
            outcome.isSettled = IsSettled(hashed.stamp, settleTime_);
            hashed.sha256 = HashContent(file, isClosed_);
            if (isClosed_) {
                hashed.code = kCancelled;
                return outcome;
            }
            if (StampOf(file) == hashed.stamp) {
                hashed.code = kNoError;
                return outcome;
            }
        }
        hashed.code = kNotReady;
        hashed.sha256.clear();
    } catch (const FileError& error) {
        hashed.code = error.Code();
        Log(zor::logger::kLevelError, Here(kSourceFile, "Compute"), "{}", error.what());
    } catch (const std::exception& exception) {
        hashed.code = kInsufficientResources;
        Log(zor::logger::kLevelError, Here(kSourceFile, "Compute"), "{}", exception.what());
    }
    return outcome;
}

void FileHashes::OnComputed(const FileStamp& asked, const Outcome& outcome) {
    ++computed_;
    if (const auto waiting = waiting_.extract(asked)) {
        for (const Taker& take : waiting.mapped()) {
            take(outcome.hashed);
        }
    }
    if (outcome.hashed.code == kNoError && outcome.isSettled) {
        Remember(outcome.hashed);
    }
}

void FileHashes::Remember(const HashedFile& hashed) {
    if (known_.contains(hashed.stamp)) {
        return;
    }
    order_.push_back(hashed.stamp);
    known_.emplace(hashed.stamp, hashed.sha256);
    if (order_.size() > kMaxFileHashes) {
        known_.erase(order_.front());
        order_.pop_front();
    }
}

}  // namespace zam_service
