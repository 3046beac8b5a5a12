#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "storage/new_file.h"

namespace zamctl {

/// Where a file will stand in the end: `path`, or what a link there leads to. Throws `UsageError`
/// when something else than a regular file stands there.
std::string OutputTarget(const std::string& path);

/// A file that a result goes to: whole, or not at all. What stood there before stays until the
/// result is on the disk. One thread at a time.
class OutputFile {
public:
    /// Begins a new file beside `path`, where a link is followed. It has `mode`, without that the
    /// permissions of the one that stands there. Throws `UsageError` when that cannot be done, and
    /// when something else than a regular file stands at `path`.
    explicit OutputFile(const std::string& path, std::optional<mode_t> mode = {});

    /// Writes the bytes and puts the new file in its place. Throws a `Failure` (`kExitFailed`).
    void Commit(std::string_view bytes);

private:
    std::string path_;
    zam_storage::NewFile file_;  // removes itself unless it was put in its place
};

}  // namespace zamctl
