#include "failing_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/uio.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>

namespace {

using zam_service::testing::FolderCall;

std::mutex mutex;
std::function<bool(off_t offset)> hasInMemory;
std::atomic<FolderCall> brokenCall{FolderCall::None};
std::atomic<int> brokenDescriptor{-1};

/// The C library's own.
template <typename Function>
Function* Own(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// Whether the read may wait for the disk: what is said to be in memory is read in any case.
bool IsInMemory(off_t offset, int& flags) {
    const std::lock_guard lock(mutex);
    if (hasInMemory == nullptr) {
        return true;
    }
    flags &= ~RWF_NOWAIT;
    return hasInMemory(offset);
}

}  // namespace

extern "C" ssize_t preadv2(int descriptor, const iovec* parts, int count, off_t offset, int flags) {
    static auto* const own = Own<decltype(preadv2)>("preadv2");
    if ((flags & RWF_NOWAIT) != 0 && !IsInMemory(offset, flags)) {
        errno = EAGAIN;
        return -1;
    }
    return own(descriptor, parts, count, offset, flags);
}

extern "C" DIR* fdopendir(int descriptor) {
    static auto* const own = Own<decltype(fdopendir)>("fdopendir");
    if (brokenCall == FolderCall::Open) {
        brokenDescriptor = descriptor;
        errno = ENOMEM;
        return nullptr;
    }
    return own(descriptor);
}

extern "C" dirent* readdir(DIR* folder) {
    static auto* const own = Own<decltype(readdir)>("readdir");
    if (brokenCall == FolderCall::Read) {
        errno = EIO;
        return nullptr;
    }
    return own(folder);
}

namespace zam_service::testing {

MemoryOfFiles::MemoryOfFiles(std::function<bool(off_t offset)> has) {
    const std::lock_guard lock(mutex);
    hasInMemory = std::move(has);
}

MemoryOfFiles::~MemoryOfFiles() {
    const std::lock_guard lock(mutex);
    hasInMemory = nullptr;
}

BrokenFolders::BrokenFolders(FolderCall call) {
    brokenDescriptor = -1;
    brokenCall = call;
}

BrokenFolders::~BrokenFolders() {
    brokenCall = FolderCall::None;
}

int BrokenFolders::Descriptor() {
    return brokenDescriptor;
}

}  // namespace zam_service::testing
