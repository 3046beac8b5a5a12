#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "clock.h"
#include "download/part_file.h"
#include "zam_connector/i_zam_file_downloader.h"

namespace zamctl {

/// What is fetched, to where, and how long it may take.
struct DownloadOrder {
    std::string path;    ///< at the server
    std::string target;  ///< where the file shall stand
    /// For the whole, from `start` on; none: as long as something comes within `kPatience`.
    std::optional<std::chrono::milliseconds> timeout;
    Clock::TimePoint start{};
};

/// What became of it.
struct DownloadReport {
    ContentIdentity content;
    std::uint64_t resumedBytes = 0;  ///< that an earlier run had fetched
    std::uint64_t fetchedBytes = 0;  ///< what was fetched more than once included
    unsigned interruptions = 0;      ///< calls that did not reach the service
    unsigned damagedChunks = 0;
    unsigned restarts = 0;  ///< because the file changed at the server
};

/// Told how a download goes, on the thread that runs it.
class DownloadWatcher {
public:
    virtual ~DownloadWatcher() = default;

    virtual void Advanced(std::uint64_t bytes, std::uint64_t totalBytes) = 0;

    /// Something that a person should know: an interruption, a damaged chunk, a restart.
    virtual void Noted(const std::string& text) = 0;

    /// Why the last call failed; empty when the service itself answered so.
    virtual std::string Cause() = 0;
};

/// Fetches one file whole: goes on where an earlier run or an interruption left off, fetches
/// damaged chunks again, begins anew when the file changes, and puts the file in its place when its
/// SHA-256 is right.
class FileDownload {
public:
    /// Times that one chunk is fetched before it is given up.
    static constexpr unsigned kMaxAttempts = 5;

    /// Times that a file which keeps changing is begun.
    static constexpr unsigned kMaxStarts = 5;

    /// How long to go on asking when nothing comes.
    static constexpr std::chrono::milliseconds kPatience{30000};

    /// Pauses between two calls that fail.
    static constexpr std::chrono::milliseconds kFirstPause{10};
    static constexpr std::chrono::milliseconds kLongestPause{500};

    /// All of them must outlive the object.
    FileDownload(zam_connector::IZamFileDownloader& source, Clock& clock, DownloadWatcher& watcher);

    /// Runs once. Throws `Failure`; what has come is then kept for the next run.
    DownloadReport Run(const DownloadOrder& order);

private:
    enum class Outcome { Whole, Changed };

    zam_connector::FileInfo Describe();
    Outcome Fetch(PartFile& part);
    void FetchChunks(PartFile& part, zam_checksums::Sha256& hash);
    zam_connector::FileChunk FetchChunk(std::uint64_t offset);
    bool IsSound(const zam_connector::FileChunk& chunk, std::uint64_t offset) const;
    bool IsOfContent(const zam_connector::FileChunk& chunk);
    Outcome Verify(PartFile& part, zam_checksums::Sha256& hash);
    template <typename Call>
    void UntilReached(const char* action, Call&& call);
    bool IsPatient() const;
    void CheckTime() const;
    void Advance(std::uint64_t bytes);

    zam_connector::IZamFileDownloader& source_;
    Clock& clock_;
    DownloadWatcher& watcher_;
    DownloadOrder order_;
    DownloadReport report_;
    Clock::TimePoint lastProgress_{};
    std::uint32_t chunkBytes_ = 0;
    std::optional<std::string> version_;  ///< of the chunks so far
};

}  // namespace zamctl
