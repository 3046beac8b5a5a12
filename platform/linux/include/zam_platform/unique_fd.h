#pragma once

#include <unistd.h>

#include <utility>

namespace zam_platform {

/// Owns a file descriptor; -1 is none. One thread at a time.
class UniqueFd {
public:
    UniqueFd() noexcept = default;
    explicit UniqueFd(int descriptor) noexcept : descriptor_(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            Reset(std::exchange(other.descriptor_, -1));
        }
        return *this;
    }
    ~UniqueFd() { Reset(); }

    int Get() const noexcept { return descriptor_; }
    explicit operator bool() const noexcept { return descriptor_ >= 0; }
    int Release() noexcept { return std::exchange(descriptor_, -1); }

    void Reset(int descriptor = -1) noexcept {
        if (descriptor_ >= 0) {
            // EINTR on Linux means closed all the same; a second close could hit a new file.
            ::close(descriptor_);
        }
        descriptor_ = descriptor;
    }

private:
    int descriptor_ = -1;
};

}  // namespace zam_platform
