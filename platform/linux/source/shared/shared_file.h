#pragma once

#include <cstddef>
#include <utility>

#include "zam_platform/unique_fd.h"

namespace zam_platform {

/// A mapping of a file of shared memory. A child after `fork` does not get it.
template <typename Pages>
class SharedMapping {
public:
    SharedMapping() noexcept = default;
    SharedMapping(Pages* pages, std::size_t bytes) noexcept : pages_(pages), bytes_(bytes) {}
    SharedMapping(SharedMapping&& other) noexcept
        : pages_(std::exchange(other.pages_, nullptr)), bytes_(other.bytes_) {}
    SharedMapping& operator=(SharedMapping&& other) noexcept {
        std::swap(pages_, other.pages_);
        std::swap(bytes_, other.bytes_);
        return *this;
    }
    ~SharedMapping();

    Pages* operator->() const noexcept { return pages_; }
    explicit operator bool() const noexcept { return pages_ != nullptr; }

    /// Forgets the mapping: for a child, which does not have it.
    void Abandon() noexcept { pages_ = nullptr; }

private:
    Pages* pages_ = nullptr;
    std::size_t bytes_ = 0;
};

struct RequestPages;
struct AnswerPages;

/// The service's end: what it writes and what it reads, and the files to send to the client.
struct ServiceMemory {
    SharedMapping<const RequestPages> requests;
    SharedMapping<AnswerPages> answers;
    UniqueFd requestFile;
    UniqueFd answerFile;
    bool canPagesOfAnswersGo = false;  ///< the client may take them out of the file again
};

/// Makes both files, zero-filled and sealed: their sizes are for good, and where the kernel can, no
/// one else may write the answers'. Throws `PlatformError`.
ServiceMemory MakeServiceMemory();

/// Whether all pages of the answers' file are there, which costs a system call.
bool AreAnswersThere(const UniqueFd& answerFile) noexcept;

/// Whether this machine promises no more memory than it has (`vm.overcommit_memory` is 2), or this
/// process may not have it. There a page that is missing may end whoever touches it by a signal,
/// and a client can take pages out of its requests' file again, which no seal forbids to who may
/// write.
bool IsCommitStrict() noexcept;

/// The client's end.
struct ClientMemory {
    SharedMapping<RequestPages> requests;
    SharedMapping<const AnswerPages> answers;
};

/// Maps files that a service has sent, when they are what they must be: of the exact sizes, which
/// are sealed, so that no access ends in a signal. Their pages are there behind that, and count as
/// this process's: services write to no others. Throws `PlatformError`.
ClientMemory MapClientMemory(const UniqueFd& requestFile, const UniqueFd& answerFile);

}  // namespace zam_platform
