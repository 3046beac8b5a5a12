#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "qor/mutex.h"
#include "zam_platform/unique_fd.h"

namespace zam_service {

/// Largest file of the data folder but for trees, in bytes.
inline constexpr std::size_t kMaxDataFileBytes = std::size_t{16} << 20U;

/// The files of the data folder, reached through an opened descriptor of it: check and use cannot
/// be parted, and nothing outside can be reached. Regular files only, no symbolic links. Functions
/// block and throw `zam_platform::PlatformError`. Thread-safe.
class FolderFiles {
public:
    using Directory = std::shared_ptr<const zam_platform::UniqueFd>;

    /// Opens an existing folder. Links in `path` are resolved now, once.
    explicit FolderFiles(const std::string& path);

    /// The absolute path without links.
    const std::string& Path() const noexcept { return path_; }

    /// The bytes of a file of at most `maxBytes`; empty when there is none.
    std::optional<std::string> Read(const std::string& name,
                                    std::size_t maxBytes = kMaxDataFileBytes) const;

    /// Whether there is anything of that name. Does not wait for the disk but for its metadata.
    bool Exists(const std::string& name) const noexcept;

    /// Replaces a file whole or not at all, and returns when it is on the disk. When only the very
    /// last step fails, which makes the new name durable, the new file stands all the same.
    void Write(const std::string& name, std::string_view bytes) const;

    /// Opens a folder in this one, which is made when it is missing.
    zam_platform::UniqueFd OpenFolder(const std::string& name) const;

    /// The folder's descriptor. Throws when the folder is away.
    Directory Open() const;

    /// True when the path still leads to the folder that is open.
    bool IsInPlace() const noexcept;

    /// Lets go of the folder because it is no longer in its place: until `Reopen`, every use
    /// fails.
    void Detach();
    bool IsAway() const;

    /// Opens what is at the path now. False when there is no folder.
    bool Reopen();

private:
    std::string Shown(const std::string& name) const;

    std::string path_;
    mutable qor::Mutex mutex_;  // a leaf: nothing is called under it
    Directory directory_ QOR_GUARDED_BY(mutex_);
};

}  // namespace zam_service
