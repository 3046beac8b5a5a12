#include "shared/shared_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>

#include <cerrno>

#include "shared/shared_pages.h"
#include "zam_platform/posix_error.h"

// Newer than the oldest headers that this is built with.
#ifndef F_SEAL_FUTURE_WRITE
#define F_SEAL_FUTURE_WRITE 0x0010
#endif
#ifndef MFD_NOEXEC_SEAL
#define MFD_NOEXEC_SEAL 0x0008U
#endif

namespace zam_platform {
namespace {

constexpr int kSizeSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

UniqueFd NewFile(const char* name, std::size_t bytes) {
    UniqueFd file(::memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING | MFD_NOEXEC_SEAL));
    if (!file && errno == EINVAL) {
        file = UniqueFd(::memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    }
    if (!file) {
        throw PosixError("new file of shared memory", errno);
    }
    // A file beyond this limit ends the process by a signal.
    rlimit limit{};
    if (::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur < bytes) {
        throw PosixError("memory to share", EFBIG);
    }
    // Its pages come with their first use, and count as the memory of whom that was.
    if (::ftruncate(file.Get(), static_cast<off_t>(bytes)) != 0) {
        throw PosixError("memory to share", errno);
    }
    return file;
}

void Seal(const UniqueFd& file, int seals) {
    if (::fcntl(file.Get(), F_ADD_SEALS, seals) != 0) {
        throw PosixError("seals of a file of shared memory", errno);
    }
}

template <typename Pages>
SharedMapping<Pages> Map(const UniqueFd& file, std::size_t bytes, int protection) {
    void* const address = ::mmap(nullptr, bytes, protection, MAP_SHARED, file.Get(), 0);
    if (address == MAP_FAILED) {
        throw PosixError("mapping of shared memory", errno);
    }
    SharedMapping<Pages> mapping(static_cast<Pages*>(address), bytes);
    // A child would share the parent's calls.
    if (::madvise(address, bytes, MADV_DONTFORK) != 0) {
        throw PosixError("mapping of shared memory", errno);
    }
    // A huge page would count as all of it; kernels without them refuse the advice.
    ::madvise(address, bytes, MADV_NOHUGEPAGE);
    return mapping;
}

template <typename Pages>
void Touch(const SharedMapping<Pages>& mapping, std::size_t bytes) noexcept {
    const auto* const words = reinterpret_cast<const SharedWord*>(mapping.operator->());
    for (std::size_t offset = 0; offset < bytes; offset += kSharedPage) {
        words[offset / sizeof(SharedWord)].load(std::memory_order_relaxed);
    }
}

void Check(const UniqueFd& file, std::size_t bytes) {
    const int seals = ::fcntl(file.Get(), F_GET_SEALS);
    if (seals < 0) {
        throw PlatformError(kStatusProtocol,
                            PosixError("seals of a file of shared memory", errno).what());
    }
    if ((seals & kSizeSeals) != kSizeSeals) {
        throw PlatformError(
            kStatusProtocol,
            fmt::format("shared memory with the seals {:#x}, not {:#x}", seals, kSizeSeals));
    }
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) {
        throw PosixError("file of shared memory", errno);
    }
    if (status.st_size != static_cast<off_t>(bytes)) {
        throw PlatformError(kStatusProtocol, fmt::format("shared memory of {} bytes, not {}",
                                                         status.st_size, bytes));
    }
}

}  // namespace

template <typename Pages>
SharedMapping<Pages>::~SharedMapping() {
    if (pages_ != nullptr) {
        ::munmap(const_cast<std::remove_const_t<Pages>*>(pages_), bytes_);
    }
}

template class SharedMapping<RequestPages>;
template class SharedMapping<const RequestPages>;
template class SharedMapping<AnswerPages>;
template class SharedMapping<const AnswerPages>;

bool AreAnswersThere(const UniqueFd& answerFile) noexcept {
    constexpr std::size_t kBlockBytes = 512;
    struct stat status {};
    return ::fstat(answerFile.Get(), &status) == 0 &&
           static_cast<std::size_t>(status.st_blocks) >= kAnswerFileBytes / kBlockBytes;
}

bool IsCommitStrict() noexcept {
    // Asked of the kernel itself: a service's sandbox may hide its settings. More memory than there
    // is, which is never touched, is refused there only.
    constexpr std::size_t kTooMuch = 4;
    struct sysinfo info {};
    if (::sysinfo(&info) != 0) {
        return true;
    }
    const std::size_t bytes =
        (std::size_t{info.totalram} + info.totalswap) * info.mem_unit * kTooMuch;
    void* const address = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (address == MAP_FAILED) {
        return true;
    }
    ::munmap(address, bytes);
    return false;
}

ServiceMemory MakeServiceMemory() {
    ServiceMemory memory;
    memory.requestFile = NewFile("zam_requests", kRequestFileBytes);
    memory.answerFile = NewFile("zam_answers", kAnswerFileBytes);
    memory.requests = Map<const RequestPages>(memory.requestFile, kRequestFileBytes, PROT_READ);
    memory.answers = Map<AnswerPages>(memory.answerFile, kAnswerFileBytes, PROT_READ | PROT_WRITE);
    Seal(memory.requestFile, kSizeSeals);
    // Before Linux 5.1 there is no such seal, and a client could spoil the answers to itself.
    if (::fcntl(memory.answerFile.Get(), F_ADD_SEALS, F_SEAL_FUTURE_WRITE) != 0) {
        if (errno != EINVAL) {
            throw PosixError("seals of a file of shared memory", errno);
        }
        memory.canPagesOfAnswersGo = true;
    }
    Seal(memory.answerFile, kSizeSeals);
    return memory;
}

ClientMemory MapClientMemory(const UniqueFd& requestFile, const UniqueFd& answerFile) {
    Check(requestFile, kRequestFileBytes);
    Check(answerFile, kAnswerFileBytes);
    ClientMemory memory;
    memory.requests = Map<RequestPages>(requestFile, kRequestFileBytes, PROT_READ | PROT_WRITE);
    memory.answers = Map<const AnswerPages>(answerFile, kAnswerFileBytes, PROT_READ);
    Touch(memory.requests, kRequestFileBytes);
    Touch(memory.answers, kAnswerFileBytes);
    return memory;
}

}  // namespace zam_platform
