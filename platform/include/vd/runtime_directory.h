#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "qel/export.h"

/// What is right and wrong with the directory in which services have their sockets, for programs
/// that tell people. Nothing here connects to anything.

namespace vd {

/// The first rule that a directory or a socket breaks. Connecting keeps to the same rules.
enum class FileFault : uint32_t {
    None,
    NotAbsolute,   ///< the directory's path; nothing was looked at
    Missing,       ///< there is no such file
    NotReadable,   ///< it cannot be looked at, or its name is none that a service may have
    SymbolicLink,  ///< in the directory's place
    WrongKind,     ///< no directory, or no socket
    Owner,         ///< belongs to a user who is not trusted with it
    OthersWrite,   ///< the directory's mode lets more users write than its owner
};

/// What looking at one file has found.
struct FileDiagnosis {
    std::string path;
    FileFault fault = FileFault::None;
    std::string error;   ///< why it is `Missing` or `NotReadable`, in the system's words
    uint32_t owner = 0;  ///< user id; 0 when the file could not be looked at
    uint32_t mode = 0;   ///< permission bits, 0 to 07777; 0 when the file could not be looked at
};

struct RuntimeDirectoryDiagnosis {
    /// What chose the path, in words that go on from "the path, from": a variable of the
    /// environment, or that none is set. Empty when the platform has no such directory.
    std::string origin;
    FileDiagnosis directory;
    /// One for each service that was asked about, in their order, also when the directory's owner
    /// or mode is wrong; none when there is no directory to look into.
    std::vector<FileDiagnosis> sockets;
};

/// Examines the directory that connecting would use now, and the sockets of these services in it.
/// Blocks in the file system and in the user database. Thread-safe as long as nobody changes the
/// environment. Throws `std::bad_alloc` alone.
ZAM_API RuntimeDirectoryDiagnosis
DiagnoseRuntimeDirectory(const std::vector<std::string>& services);

}  // namespace vd
