#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "zam_platform/unique_fd.h"

/// Reading and writing through descriptors, with what interrupts it dealt with. Every function
/// blocks and throws `zam_platform::PlatformError`, in which `shown` names the file.

namespace zam_service {

/// Opens `name` in `directory`; the last component must be no symbolic link. Empty when there is
/// no such file.
zam_platform::UniqueFd OpenBeneath(int directory, const std::string& name, int flags,
                                   const std::string& shown);

/// Checks that a descriptor is that of a regular file and returns its size in bytes.
std::size_t CheckRegular(int file, const std::string& shown);

/// The whole file, of at most `limit` bytes.
std::string ReadWhole(int file, std::size_t limit, const std::string& shown);

void WriteWhole(int file, std::string_view bytes, const std::string& shown);

/// The name under which `ReplaceFile` writes a file until it is whole.
std::string UnfinishedName(const std::string& name);

/// Replaces a file whole or not at all, and returns when it is on the disk. When only the very last
/// step fails, which makes the new name durable, the new file stands all the same.
void ReplaceFile(int directory, const std::string& name, std::string_view bytes,
                 const std::string& shown);

/// Returns when a file's bytes, or a directory's names, are on the disk.
void Sync(int file, const std::string& shown);

}  // namespace zam_service
