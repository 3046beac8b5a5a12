#include "output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "failure.h"

namespace zamctl {
namespace {

namespace fs = std::filesystem;

/// New files that runs which were killed left behind stand in the way of as many attempts.
constexpr unsigned kAttempts = 100;

constexpr mode_t kPermissions = 0777;
constexpr mode_t kNewFileMode = 0666;

[[noreturn]] void Refuse(const std::string& path, const std::string& why) {
    throw UsageError(fmt::format("--output: '{}' cannot be written: {}", path, why));
}

[[noreturn]] void Fail(const std::string& path, int error) {
    throw Failure(
        kExitFailed,
        fmt::format("'{}' could not be written: {}", path, std::generic_category().message(error)),
        "What was asked for has been read all the same; the file is as it was.");
}

}  // namespace

std::string OutputTarget(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) {
        if (fs::is_symlink(fs::symlink_status(path, error))) {
            Refuse(path, "it is a link to what is not there");
        }
        if (!fs::path(path).has_filename()) {
            Refuse(path, "it names no file");
        }
        return path;
    }
    if (!fs::is_regular_file(status)) {
        // Renaming would replace a device or a pipe instead of writing to it.
        Refuse(path, "it is no regular file");
    }
    const fs::path resolved = fs::canonical(path, error);
    if (error) {
        Refuse(path, error.message());
    }
    return resolved.string();
}

OutputFile::OutputFile(const std::string& path, std::optional<mode_t> mode)
    : path_(OutputTarget(path)) {
    const fs::path target(path_);
    for (unsigned attempt = 0; attempt < kAttempts && file_ < 0; ++attempt) {
        newPath_ = (target.parent_path() /
                    fmt::format(".{}.{}-{}.new", target.filename().string(), ::getpid(), attempt))
                       .string();
        // The mask of the process takes away what others shall not have.
        file_ = ::open(newPath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                       mode.value_or(kNewFileMode));
        if (file_ < 0 && errno != EEXIST) {
            break;
        }
    }
    if (file_ < 0) {
        Refuse(path, std::generic_category().message(errno));
    }
    struct stat before {};
    if (!mode && ::stat(path_.c_str(), &before) == 0 &&
        ::fchmod(file_, before.st_mode & kPermissions) != 0) {
        const int error = errno;
        Discard();
        Refuse(path, std::generic_category().message(error));
    }
}

OutputFile::~OutputFile() {
    if (isCommitted_) {
        ::close(file_);
    } else {
        Discard();
    }
}

void OutputFile::Discard() const noexcept {
    ::close(file_);
    ::unlink(newPath_.c_str());
}

void OutputFile::Commit(std::string_view bytes) {
    Write(bytes);
    if (::fsync(file_) != 0 || ::rename(newPath_.c_str(), path_.c_str()) != 0) {
        Fail(path_, errno);
    }
    isCommitted_ = true;
}

void OutputFile::Write(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file_, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            Fail(path_, errno);
        }
    }
}

}  // namespace zamctl
