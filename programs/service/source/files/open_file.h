#pragma once

#include <sys/types.h>

#include <compare>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "data/folder_files.h"
#include "zam_platform/unique_fd.h"

namespace zam_service {

/// The folder, in the data folder, of the files that are served for download.
inline constexpr char kFilesFolder[] = "files";

/// What tells one content of a file from another without looking at it: files with equal stamps
/// have equal contents, unless they were changed twice within one tick of the file system's clock.
struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    std::uint64_t sizeBytes = 0;
    std::int64_t modifiedS = 0;
    std::int64_t modifiedNs = 0;
    std::int64_t changedS = 0;
    std::int64_t changedNs = 0;

    /// Any order, for containers. The generated comparison with 0 is no pointer.
    auto operator<=>(const FileStamp& other) const = default;  // NOLINT(modernize-use-nullptr)

    bool IsSameFile(const FileStamp& other) const noexcept {
        return device == other.device && inode == other.inode;
    }
};

/// Bytes of a version tag.
inline constexpr std::size_t kVersionBytes = 16;

/// The version tag of a content: `kVersionBytes` hexadecimal digits, written to `to`.
void WriteVersion(const FileStamp& stamp, unsigned char* to) noexcept;

/// Why a file is not served, as a result code for the client and a text for the log.
class FileError : public std::runtime_error {
public:
    FileError(int code, const std::string& text) : std::runtime_error(text), code_(code) {}

    int Code() const noexcept { return code_; }

private:
    int code_;
};

/// A regular file below the folder of served files. Thread-safe.
struct OpenFile {
    std::string path;  ///< below the folder
    zam_platform::UniqueFd descriptor;
    FileStamp opened;  ///< when it was opened
};

using OpenFilePtr = std::shared_ptr<const OpenFile>;

/// Opens the file that a client names by `path`. Blocks for the disk. Throws `FileError` and
/// `std::bad_alloc`. Thread-safe.
OpenFilePtr OpenServed(const FolderFiles& files, const std::string& path);

/// The stamp of an open file's content of now. Throws `FileError`. Thread-safe.
FileStamp StampOf(const OpenFile& file);

/// Whether a file's path still leads to it. For metadata that the kernel has at hand it does not
/// wait. Thread-safe.
bool IsInPlace(const FolderFiles& files, const OpenFile& file);

}  // namespace zam_service
