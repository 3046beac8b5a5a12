#include "shared/preemption.h"

#include <sys/resource.h>

#include <utility>

namespace zam_platform {

bool HasBeenPreempted() noexcept {
    thread_local long before = 0;
    rusage usage{};
    if (::getrusage(RUSAGE_THREAD, &usage) != 0) {
        return true;
    }
    return std::exchange(before, usage.ru_nivcsw) != usage.ru_nivcsw;
}

}  // namespace zam_platform
