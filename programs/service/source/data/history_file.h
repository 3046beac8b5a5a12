#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "data/folder_files.h"

namespace zam_service {

inline constexpr char kUploadsFolder[] = "uploads";
inline constexpr char kHistoryFile[] = "history.jsonl";
inline constexpr char kOldHistoryFile[] = "history.1.jsonl";

/// Largest history file, in bytes; with the old one, a data folder holds twice that.
inline constexpr std::size_t kMaxHistoryBytes = std::size_t{8} << 20U;

/// The history on disk. One thread at a time.
class HistoryFile {
public:
    /// `files` is not owned and must outlive this object. A line that would make the file larger
    /// than `limit` goes to a new file, and the one before becomes the old one; a single line may
    /// be larger than that.
    explicit HistoryFile(const FolderFiles& files, std::size_t limit = kMaxHistoryBytes);

    struct Result {
        std::size_t written = 0;   ///< lines, from the first, that are on the disk
        std::string error;         ///< why the rest is not; empty when there is no rest
        bool lacksMemory = false;  ///< that is why
    };

    /// Appends lines, each with its newline, and returns when they are on the disk. Blocks. After
    /// a failure the file ends with the last line that was written whole.
    Result Append(const std::vector<std::string>& lines);

private:
    void AppendSome(const std::vector<std::string>& lines, std::size_t& written);

    const FolderFiles& files_;
    const std::size_t limit_;
};

}  // namespace zam_service
