#include "shared/preemption.h"

#include <sys/resource.h>

#include <chrono>
#include <utility>

namespace zam_platform {
namespace {

using Clock = std::chrono::steady_clock;

/// A few time slices. The scheduler's count says how often, not when: what was counted in longer
/// time than this is mostly a kernel thread's errand of long ago.
constexpr std::chrono::milliseconds kRecently{20};

}  // namespace

bool HasBeenPreempted(std::chrono::nanoseconds hole) noexcept {
    thread_local long before = 0;
    thread_local Clock::time_point lastAsked;
    rusage usage{};
    if (::getrusage(RUSAGE_THREAD, &usage) != 0) {
        return true;
    }
    const auto now = Clock::now();
    const bool isRecent = now - std::exchange(lastAsked, now) <= kRecently + hole;
    return std::exchange(before, usage.ru_nivcsw) != usage.ru_nivcsw && isRecent;
}

}  // namespace zam_platform
