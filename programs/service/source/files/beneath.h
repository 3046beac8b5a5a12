#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "zam_platform/unique_fd.h"

/// Opening files by names that come from clients. Whatever the name, and whoever moves folders and
/// links about meanwhile, nothing outside the folder is reached.

namespace zam_service {

/// Longest path of a file, in bytes: what a request has room for.
inline constexpr std::size_t kMaxFilePathBytes = 1024;

/// Whether a client's path may name a file: 1 to `kMaxFilePathBytes` bytes, without a zero byte,
/// whose levels, with `/` between them and none in front or behind, are neither empty nor `.` nor
/// `..`.
bool IsFilePath(std::string_view path) noexcept;

/// A file opened for reading, or the errno value that says why not.
struct OpenedBeneath {
    zam_platform::UniqueFd file;
    int error = 0;
};

/// Opens what `path`, an `IsFilePath`, leads to below the folder `directory`, without following a
/// symbolic link on any level (ELOOP) and without waiting for a pipe's other end. Blocks for the
/// disk. Thread-safe.
OpenedBeneath OpenPathBeneath(int directory, const std::string& path);

/// The same level by level, for kernels that do not have it in one call.
OpenedBeneath OpenPathLevelByLevel(int directory, const std::string& path);

}  // namespace zam_service
