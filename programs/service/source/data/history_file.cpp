#include "data/history_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <utility>

#include "data/file_io.h"
#include "zam_platform/posix_error.h"

namespace zam_service {

using zam_platform::PosixError;
using zam_platform::UniqueFd;

namespace {

/// Opens the history to append to it, and makes it when there is none.
UniqueFd OpenHistory(int folder, const std::string& shown) {
    UniqueFd file = OpenBeneath(folder, kHistoryFile, O_RDWR | O_APPEND, shown);
    if (!file) {
        file = OpenBeneath(folder, kHistoryFile, O_RDWR | O_APPEND | O_CREAT, shown);
        if (!file) {
            throw PosixError(shown, ENOENT);
        }
        Sync(folder, shown);
    }
    return file;
}

/// True when the file's last line has no end, because a daemon died while writing it.
bool IsTorn(int file, std::size_t size) {
    char last = '\n';
    return size != 0 && ::pread(file, &last, 1, static_cast<off_t>(size - 1)) == 1 && last != '\n';
}

}  // namespace

HistoryFile::HistoryFile(const FolderFiles& files, std::size_t limit)
    : files_(files), limit_(limit) {}

HistoryFile::Result HistoryFile::Append(const std::vector<std::string>& lines) {
    Result result;
    try {
        while (result.written < lines.size()) {
            AppendSome(lines, result.written);
        }
    } catch (const std::bad_alloc&) {
        result.error = "out of memory";
        result.lacksMemory = true;
    } catch (const std::exception& exception) {
        result.error = exception.what();
    }
    return result;
}

void HistoryFile::AppendSome(const std::vector<std::string>& lines, std::size_t& written) {
    const std::string shown =
        fmt::format("'{}/{}/{}'", files_.Path(), kUploadsFolder, kHistoryFile);
    const UniqueFd folder = files_.OpenFolder(kUploadsFolder);
    const UniqueFd file = OpenHistory(folder.Get(), shown);
    const std::size_t size = CheckRegular(file.Get(), shown);
    std::string bytes = IsTorn(file.Get(), size) ? "\n" : "";
    std::size_t next = written;
    while (next < lines.size() &&
           (size + bytes.size() == 0 || size + bytes.size() + lines[next].size() <= limit_)) {
        bytes += lines[next++];
    }
    if (next == written) {
        if (::renameat(folder.Get(), kHistoryFile, folder.Get(), kOldHistoryFile) != 0) {
            throw PosixError(shown, errno);
        }
        Sync(folder.Get(), shown);
        return;
    }
    try {
        WriteWhole(file.Get(), bytes, shown);
        Sync(file.Get(), shown);
    } catch (const std::exception&) {
        // Whoever is told of a failure must not find half of the line there. Where this fails too,
        // the next line begins behind a newline of its own.
        [[maybe_unused]] const int ignored = ::ftruncate(file.Get(), static_cast<off_t>(size));
        throw;
    }
    written = next;
}

}  // namespace zam_service
