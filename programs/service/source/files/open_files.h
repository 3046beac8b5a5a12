#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <list>
#include <string>

#include "files/open_file.h"
#include "zam_platform/server/alarm.h"

namespace zam_service {

/// Most files that are kept open between two calls; the descriptors come out of those that the
/// daemon keeps for itself.
inline constexpr std::size_t kMaxOpenFiles = 16;

/// A file that is not asked for so long is closed: its file system can be unmounted, and the room
/// of a deleted file comes back.
inline constexpr std::chrono::seconds kOpenFileIdleTime{5};

/// Files that are being downloaded, kept open from one chunk to the next. On the loop thread only.
class OpenFiles {
public:
    /// `files` is not owned and must outlive this object.
    OpenFiles(asio::io_context& loop, const FolderFiles& files,
              std::chrono::milliseconds idleTime = kOpenFileIdleTime);

    /// The open file of a path that still leads to it; null when there is none.
    OpenFilePtr Find(const std::string& path);

    /// Keeps a file open, in place of the one of the same path, or of the one used longest ago.
    void Keep(const OpenFilePtr& file);

    /// Keeps a file, which may be null, open no longer.
    void Drop(const OpenFilePtr& file);

    /// Closes all, for good.
    void Close();

    std::size_t Count() const noexcept { return files_.size(); }

private:
    struct Entry {
        OpenFilePtr file;
        std::chrono::steady_clock::time_point used;
    };

    std::list<Entry>::iterator Of(const std::string& path);
    void CloseIdle();
    void AwaitIdle() noexcept;

    const FolderFiles& folder_;
    const std::chrono::milliseconds idleTime_;
    std::list<Entry> files_;  ///< the one used last in front
    zam_platform::Alarm idle_;
    bool isClosed_ = false;
};

}  // namespace zam_service
