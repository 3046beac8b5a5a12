#include "files/beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace zam_service {

using zam_platform::UniqueFd;

namespace {

/// Not blocking: a pipe in a file's place must not hold up anybody.
constexpr int kFileFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool IsLevel(std::string_view level) noexcept {
    return !level.empty() && level != "." && level != "..";
}

OpenedBeneath Taken(int descriptor) {
    const int error = descriptor < 0 ? errno : 0;
    return {.file = UniqueFd(descriptor), .error = error};
}

/// Opens one level that others follow. O_PATH asks for no right to read the folder.
OpenedBeneath OpenLevel(int directory, const std::string& name) {
    OpenedBeneath opened =
        Taken(::openat(directory, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (opened.error == 0 && ::fstat(opened.file.Get(), &status) != 0) {
        opened.error = errno;
    } else if (opened.error == 0 && !S_ISDIR(status.st_mode)) {
        opened.error = S_ISLNK(status.st_mode) ? ELOOP : ENOTDIR;
    }
    return opened;
}

}  // namespace

bool IsFilePath(std::string_view path) noexcept {
    if (path.size() > kMaxFilePathBytes || path.find('\0') != std::string_view::npos) {
        return false;
    }
    for (;;) {
        const std::size_t end = path.find('/');
        if (!IsLevel(path.substr(0, end))) {
            return false;
        }
        if (end == std::string_view::npos) {
            return true;
        }
        path.remove_prefix(end + 1);
    }
}

OpenedBeneath OpenPathBeneath(int directory, const std::string& path) {
    open_how how{};
    how.flags = kFileFlags;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    const auto descriptor =
        static_cast<int>(::syscall(SYS_openat2, directory, path.c_str(), &how, sizeof(how)));
    // Filters of system calls answer one that they do not know with EPERM; where that was the
    // file's own answer, the second way finds it again.
    if (descriptor < 0 && (errno == ENOSYS || errno == EPERM)) {
        return OpenPathLevelByLevel(directory, path);
    }
    return Taken(descriptor);
}

OpenedBeneath OpenPathLevelByLevel(int directory, const std::string& path) {
    UniqueFd folder;
    std::size_t begin = 0;
    for (;;) {
        const int from = folder ? folder.Get() : directory;
        const std::size_t end = path.find('/', begin);
        if (end == std::string::npos) {
            return Taken(::openat(from, path.c_str() + begin, kFileFlags));
        }
        OpenedBeneath level = OpenLevel(from, path.substr(begin, end - begin));
        if (level.error != 0) {
            return {.file = {}, .error = level.error};
        }
        folder = std::move(level.file);
        begin = end + 1;
    }
}

}  // namespace zam_service
