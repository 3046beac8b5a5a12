#include "output_file.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "failure.h"

namespace zamctl {
namespace {

namespace fs = std::filesystem;

/// New files that runs which were killed left behind stand in the way of as many attempts.
constexpr unsigned kAttempts = 100;

constexpr mode_t kNewFileMode = 0666;

[[noreturn]] void Refuse(const std::string& path, const std::string& why) {
    throw UsageError(fmt::format("--output: '{}' cannot be written: {}", path, why));
}

[[noreturn]] void Fail(const std::string& path, const std::error_code& error) {
    throw Failure(kExitFailed, fmt::format("'{}' could not be written: {}", path, error.message()),
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
    auto error = std::make_error_code(std::errc::file_exists);
    for (unsigned attempt = 0; attempt < kAttempts && error == std::errc::file_exists; ++attempt) {
        // Beside its target: no file is renamed from one file system to another.
        const fs::path newPath =
            target.parent_path() /
            fmt::format(".{}.{}-{}.new", target.filename().string(), ::getpid(), attempt);
        // The mask of the process takes away what others shall not have.
        error = file_.Create(newPath.string(), mode.value_or(kNewFileMode));
    }
    if (!error && !mode) {
        error = zam_storage::CopyPermissions(path_, file_.Descriptor());
    }
    if (error) {
        Refuse(path, error.message());
    }
}

void OutputFile::Commit(std::string_view bytes) {
    if (const std::error_code error = zam_storage::WriteAll(file_.Descriptor(), bytes)) {
        Fail(path_, error);
    }
    // A file that stands in its place is no failure, even when a crash might still undo it.
    if (const auto [isInPlace, error] = file_.Replace(path_); !isInPlace) {
        Fail(path_, error);
    }
}

}  // namespace zamctl
