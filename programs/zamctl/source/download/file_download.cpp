#include "download/file_download.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "checksums/crc32.h"
#include "codes.h"
#include "download/chunk_writer.h"
#include "failure.h"
#include "printable.h"
#include "times.h"
#include "zam_connector/result_code.h"

namespace zamctl {
namespace {

using zam_checksums::Sha256;
using zam_connector::FileChunk;
using zam_connector::FileInfo;

constexpr char kReadFile[] = "read the file";
constexpr char kAgain[] = "Run the same command again: it goes on where this one ended.";

/// Thrown when a chunk is of another content than the one begun with.
class ContentChanged final : public std::exception {};

bool IsDigest(const std::string& text) {
    constexpr std::size_t kDigits = 64;
    return text.size() == kDigits &&
           text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

FileDownload::FileDownload(zam_connector::IZamFileDownloader& source, Clock& clock,
                           DownloadWatcher& watcher)
    : source_(source), clock_(clock), watcher_(watcher) {}

DownloadReport FileDownload::Run(const DownloadOrder& order) {
    order_ = order;
    lastProgress_ = clock_.Now();
    for (unsigned starts = 1;; ++starts) {
        const FileInfo info = Describe();
        report_.content = {info.sha256, info.sizeBytes};
        // Within bounds whatever the service says: more than the most does not fit an answer, and
        // of chunks of 0 bytes no file comes.
        chunkBytes_ = static_cast<std::uint32_t>(std::clamp<std::uint64_t>(
            info.chunkSizeBytes == 0 ? zam_connector::kMaxFileChunkBytes : info.chunkSizeBytes, 1,
            zam_connector::kMaxFileChunkBytes));
        version_.reset();
        PartFile part(order_.target, report_.content);
        if (Fetch(part) == Outcome::Whole) {
            part.Commit();
            return report_;
        }
        if (starts == kMaxStarts) {
            throw Failure(kExitFailed,
                          fmt::format("{} changed {} times while it was fetched",
                                      Quote(order_.path), kMaxStarts),
                          "Run the command again when the file stays as it is.");
        }
        ++report_.restarts;
        watcher_.Noted("what came is not what the server has now; beginning anew");
    }
}

/// Makes a call until it reaches the service and the file is not just being written; what the
/// service refuses otherwise is a failure at once.
template <typename Call>
void FileDownload::UntilReached(const char* action, Call&& call) {
    std::chrono::milliseconds pause = kFirstPause;
    for (bool isFirst = true;; isFirst = false) {
        CheckTime();
        const int code = call();
        if (!zam_connector::IsFailure(code)) {
            return;
        }
        const std::string cause = watcher_.Cause();
        // The library's own code for a call that did not come through, and the service's for a file
        // that is being written: both pass.
        const bool mayPass = code == zam_connector::kUnspecifiedError || code == kNotReady;
        if (!mayPass || !IsPatient()) {
            // That the file did not come is the failure, not that the last call had no answer.
            throw CallFailure(fmt::format("{} {}", action, Quote(order_.path)), code, cause,
                              zam_connector::TransportFailure::None);
        }
        if (isFirst) {
            ++report_.interruptions;
            watcher_.Noted(fmt::format("interrupted, trying again: {}",
                                       cause.empty() ? DescribeCode(code) : cause));
        }
        clock_.SleepFor(pause);
        pause = std::min(pause * 2, kLongestPause);
    }
}

FileInfo FileDownload::Describe() {
    FileInfo info;
    UntilReached("describe", [&] { return source_.GetFileInfo({.path = order_.path}, info); });
    if (!IsDigest(info.sha256)) {
        throw Failure(kExitFailed,
                      fmt::format("the service describes {} with the SHA-256 {}, which is none",
                                  Quote(order_.path), Quote(info.sha256)),
                      "Look into the log of zam_connectord.");
    }
    return info;
}

FileDownload::Outcome FileDownload::Fetch(PartFile& part) {
    try {
        Sha256 hash;
        part.AddTo(hash);
        report_.resumedBytes = part.Size();
        FetchChunks(part, hash);
        return Verify(part, hash);
    } catch (const ContentChanged&) {
        part.Discard();
        return Outcome::Changed;
    }
}

void FileDownload::FetchChunks(PartFile& part, Sha256& hash) {
    std::uint64_t offset = part.Size();
    Advance(offset);
    ChunkWriter writer(part, hash);
    while (offset < report_.content.sizeBytes) {
        FileChunk chunk = FetchChunk(offset);
        offset += chunk.data.size();
        writer.Put(std::move(chunk.data));
        Advance(offset);
    }
    writer.Finish();
}

FileChunk FileDownload::FetchChunk(std::uint64_t offset) {
    for (unsigned attempts = 1;; ++attempts) {
        FileChunk chunk;
        UntilReached(kReadFile, [&] {
            return source_.GetFileChunk(
                {.path = order_.path, .offset = offset, .maxSizeBytes = chunkBytes_}, chunk);
        });
        report_.fetchedBytes += chunk.data.size();
        const bool isWhole = zam_checksums::Crc32(chunk.data) == chunk.crc32;
        if (isWhole && !IsOfContent(chunk)) {
            throw ContentChanged();
        }
        if (isWhole && IsSound(chunk, offset)) {
            return chunk;
        }
        ++report_.damagedChunks;
        if (attempts == kMaxAttempts) {
            throw Failure(kExitFailed,
                          fmt::format("the chunk at byte {} of {} came damaged {} times", offset,
                                      Quote(order_.path), kMaxAttempts),
                          kAgain);
        }
        watcher_.Noted(fmt::format("the chunk at byte {} came damaged; fetching it again", offset));
    }
}

bool FileDownload::IsSound(const FileChunk& chunk, std::uint64_t offset) const {
    return chunk.offset == offset && !chunk.data.empty() &&
           chunk.data.size() <= report_.content.sizeBytes - offset;
}

/// Another version is another content, unless the file's description is still the same: a version
/// may change with more than the content does.
bool FileDownload::IsOfContent(const FileChunk& chunk) {
    if (chunk.totalSizeBytes != report_.content.sizeBytes) {
        return false;
    }
    if (version_ && *version_ != chunk.version) {
        const FileInfo info = Describe();
        if (!(ContentIdentity{info.sha256, info.sizeBytes} == report_.content)) {
            return false;
        }
    }
    version_ = chunk.version;
    return true;
}

FileDownload::Outcome FileDownload::Verify(PartFile& part, Sha256& hash) {
    const ContentIdentity got = {hash.Digest(), part.Size()};
    if (got == report_.content) {
        return Outcome::Whole;
    }
    // What came is whole when the file was replaced between its description and the first chunk.
    const FileInfo info = Describe();
    const bool isNewer =
        report_.resumedBytes == 0 && got.sizeBytes == info.sizeBytes && got.sha256 == info.sha256;
    if (isNewer) {
        report_.content = got;
        return Outcome::Whole;
    }
    part.Discard();
    return Outcome::Changed;
}

void FileDownload::Advance(std::uint64_t bytes) {
    lastProgress_ = clock_.Now();
    watcher_.Advanced(bytes, report_.content.sizeBytes);
}

/// Whether to go on asking though nothing comes. A time for the whole ends that too, by itself.
bool FileDownload::IsPatient() const {
    return order_.timeout || clock_.Now() - lastProgress_ < kPatience;
}

void FileDownload::CheckTime() const {
    if (clock_.Interrupted()) {
        throw Failure(kExitFailed, "interrupted", kAgain);
    }
    if (order_.timeout && clock_.Now() - order_.start >= *order_.timeout) {
        throw Failure(kExitFailed,
                      fmt::format("{} has not come whole within {}", Quote(order_.path),
                                  DurationText(*order_.timeout)),
                      kAgain);
    }
}

}  // namespace zamctl
