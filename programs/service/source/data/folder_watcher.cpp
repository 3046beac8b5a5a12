#include "data/folder_watcher.h"

#include <fmt/format.h>
#include <sys/inotify.h>

#include <asio/buffer.hpp>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "common/log.h"
#include "zam_platform/posix_error.h"

namespace zam_service {
namespace {

constexpr std::uint32_t kFolderMask = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE |
                                      IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t kParentMask =
    IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR;
constexpr std::uint32_t kSelfMask = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;

int OpenNotices() {
    const int descriptor = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (descriptor < 0) {
        throw zam_platform::PosixError("notices of the file system", errno);
    }
    return descriptor;
}

}  // namespace

FolderWatcher::FolderWatcher(asio::io_context& loop, std::string path, FolderObserver observer)
    : notices_(loop, OpenNotices()), path_(std::move(path)), observer_(std::move(observer)) {
    ReadMore();
}

void FolderWatcher::Watch(int directory) {
    if (folder_ >= 0) {
        // A folder that was moved away would go on telling of its files.
        ::inotify_rm_watch(notices_.native_handle(), folder_);
        folder_ = -1;
    }
    WatchParent();
    if (directory < 0) {
        return;
    }
    // Through the descriptor, so that the folder watched is the one that is read.
    const std::string link = fmt::format("/proc/self/fd/{}", directory);
    folder_ = ::inotify_add_watch(notices_.native_handle(), link.c_str(), kFolderMask);
    if (folder_ < 0) {
        throw zam_platform::PosixError(fmt::format("watching the folder '{}'", path_), errno);
    }
}

void FolderWatcher::WatchParent() {
    if (parent_ >= 0) {
        ::inotify_rm_watch(notices_.native_handle(), parent_);
    }
    const std::string parent = path_.substr(0, path_.rfind('/') + 1);
    // A parent that may not be read is not watched; then only a move is noticed at once.
    parent_ = ::inotify_add_watch(notices_.native_handle(), parent.c_str(), kParentMask);
}

void FolderWatcher::Close() {
    std::error_code ignored;
    notices_.close(ignored);
}

void FolderWatcher::ReadMore() {
    notices_.async_read_some(
        asio::buffer(buffer_),
        zam_platform::InRoom(*room_,
                             [this, room = room_](const std::error_code& error, std::size_t bytes) {
                                 // An error here is the end: the descriptor was closed.
                                 if (!error && notices_.is_open()) {
                                     OnNotices(bytes);
                                 }
                             }));
}

void FolderWatcher::OnNotices(std::size_t bytes) {
    try {
        OnRead(bytes);
    } catch (const std::bad_alloc&) {
        // What was told is lost, and everything is looked at again, by and by.
        zam_connector::common::Log(zor::logger::kLevelError,
                                   zam_connector::common::Here("folder_watcher", "OnNotices"),
                                   "out of memory");
        ReadMore();
        observer_.onLost();
        return;
    }
    ReadMore();
}

void FolderWatcher::OnRead(std::size_t bytes) {
    const std::string ownName = path_.substr(path_.rfind('/') + 1);
    bool folderTouched = false;
    for (std::size_t offset = 0; offset < bytes;) {
        inotify_event event{};
        std::memcpy(&event, buffer_.data() + offset, sizeof(event));
        const std::string name =
            event.len == 0 ? std::string() : std::string(buffer_.data() + offset + sizeof(event));
        offset += sizeof(event) + event.len;
        const bool isLost = (event.mask & IN_Q_OVERFLOW) != 0;
        const bool isOfFolder = event.wd == folder_ && (event.mask & kSelfMask) != 0;
        const bool isOfOwnName = event.wd == parent_ && name == ownName;
        if (isLost) {
            observer_.onLost();
        }
        if (isLost || isOfFolder || isOfOwnName) {
            folderTouched = true;
        } else if (event.wd == folder_ && (event.mask & IN_ISDIR) == 0 && !name.empty()) {
            const bool isGone = (event.mask & (IN_MOVED_FROM | IN_DELETE)) != 0;
            (isGone ? observer_.onGone : observer_.onFile)(name);
        }
    }
    if (folderTouched) {
        observer_.onFolder();
    }
}

}  // namespace zam_service
