#pragma once

#include <sys/resource.h>

namespace zam_platform::testing {

/// Leaves the process no descriptor until the end of the scope.
class NoDescriptorsLeft {
public:
    NoDescriptorsLeft() : NoDescriptorsLeft(0) {}

    /// Leaves it as many as that: 0 or 1.
    explicit NoDescriptorsLeft(rlim_t left);
    NoDescriptorsLeft(const NoDescriptorsLeft&) = delete;
    NoDescriptorsLeft& operator=(const NoDescriptorsLeft&) = delete;
    ~NoDescriptorsLeft();

private:
    rlimit before_{};
};

}  // namespace zam_platform::testing
