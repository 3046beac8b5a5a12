#pragma once

#include <sys/resource.h>

namespace zam_platform::testing {

/// Leaves the process no descriptor until the end of the scope.
class NoDescriptorsLeft {
public:
    NoDescriptorsLeft();
    NoDescriptorsLeft(const NoDescriptorsLeft&) = delete;
    NoDescriptorsLeft& operator=(const NoDescriptorsLeft&) = delete;
    ~NoDescriptorsLeft();

private:
    rlimit before_{};
};

}  // namespace zam_platform::testing
