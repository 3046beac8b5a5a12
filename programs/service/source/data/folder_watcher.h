#pragma once

#include <array>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "zam_platform/server/handler_room.h"

namespace zam_service {

/// What a `FolderWatcher` tells, on the loop thread.
struct FolderObserver {
    /// A file was closed after writing, or moved in.
    std::function<void(const std::string& name)> onFile;
    /// A file was moved away or deleted.
    std::function<void(const std::string& name)> onGone;
    /// Notices were lost: anything may have changed.
    std::function<void()> onLost;
    /// The folder itself may have been moved, removed or replaced.
    std::function<void()> onFolder;
};

/// Watches one folder, and in its parent the folder's own name: a folder that is removed while a
/// descriptor of it is open tells nothing by itself. A file that is being written tells nothing
/// until it is closed. On the loop thread only.
class FolderWatcher {
public:
    /// Throws `zam_platform::PlatformError`. `path` is absolute.
    FolderWatcher(asio::io_context& loop, std::string path, FolderObserver observer);

    /// Watches the folder behind an open descriptor, in place of the one before; with -1 nothing
    /// but the folder's name, until there is one. Throws `zam_platform::PlatformError`.
    void Watch(int directory);

    /// Ends it; no observer is called after that.
    void Close();

private:
    void ReadMore();
    void OnNotices(std::size_t bytes);
    void OnRead(std::size_t bytes);
    void WatchParent();

    asio::posix::stream_descriptor notices_;
    const std::string path_;
    const FolderObserver observer_;
    int folder_ = -1;  ///< watch descriptors; -1 for none
    int parent_ = -1;
    /// The handler's too, which may outlive this object in the loop.
    std::shared_ptr<zam_platform::HandlerRoom> room_ =
        std::make_shared<zam_platform::HandlerRoom>();
    /// Room for many notices: what the kernel queues meanwhile is bounded.
    alignas(8) std::array<char, std::size_t{16} << 10U> buffer_;
};

}  // namespace zam_service
