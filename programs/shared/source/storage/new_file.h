#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <string>
#include <string_view>
#include <system_error>

/// Replacing files whole or not at all. Every function blocks on the disk; errors are of the
/// generic category.

namespace zam_storage {

/// Writes all of the bytes.
std::error_code WriteAll(int file, std::string_view bytes) noexcept;

/// Returns when a file's bytes, or a folder's names, are on the disk.
std::error_code SyncFile(int file) noexcept;

/// The same for the names of the folder in which `path` stands.
std::error_code SyncFolderOf(const std::string& path);

/// Gives an open file the permissions of the one at `path`; none when nothing stands there.
std::error_code CopyPermissions(const std::string& path, int file) noexcept;

/// What became of replacing a file.
struct Replacement {
    bool isInPlace = false;  ///< when not, what stood there before still does
    std::error_code error;   ///< with a file in place: its new name may not survive a crash
};

/// A file that is to take another one's place and has a name of its own until it is whole. One
/// thread at a time.
class NewFile {
public:
    /// Names are looked up in `folder`, which is not owned; without one they are paths.
    explicit NewFile(int folder = AT_FDCWD) noexcept : folder_(folder) {}
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// Removes the file unless it has been put in its place.
    ~NewFile();

    /// Makes the file. What stands under the name already, a link included, is an error. After an
    /// error another name may be tried.
    std::error_code Create(const std::string& name, mode_t mode);

    /// Not owned by the caller; -1 before `Create`.
    int Descriptor() const noexcept { return file_; }

    /// Brings the file to the disk, puts it in the place of `name`, and brings that to the disk.
    Replacement Replace(const std::string& name);

private:
    const int folder_;
    std::string name_;  ///< empty when there is nothing to be removed
    int file_ = -1;
};

}  // namespace zam_storage
