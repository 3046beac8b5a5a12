#pragma once

#include <sys/types.h>

#include <functional>

/// Calls of the C library that this executable replaces, so that tests can have them fail as disks
/// and the system rarely do. They serve the whole process; without an object of a class below they
/// do what they always do.

namespace zam_service::testing {

/// While it lives, reads that must not wait for the disk find what `hasInMemory` says. That is
/// called with the offset, on the thread that reads, for one read at a time.
class MemoryOfFiles {
public:
    explicit MemoryOfFiles(std::function<bool(off_t offset)> hasInMemory);
    MemoryOfFiles(const MemoryOfFiles&) = delete;
    MemoryOfFiles& operator=(const MemoryOfFiles&) = delete;
    ~MemoryOfFiles();
};

/// A call that lists a folder.
enum class FolderCall { None, Open, Read };

/// While it lives, that call fails for every folder.
class BrokenFolders {
public:
    explicit BrokenFolders(FolderCall call);
    BrokenFolders(const BrokenFolders&) = delete;
    BrokenFolders& operator=(const BrokenFolders&) = delete;
    ~BrokenFolders();

    /// What the last call that failed was to open; -1 without one.
    static int Descriptor();
};

}  // namespace zam_service::testing
