#pragma once

namespace zam_platform {

/// Tells the processor that this is a loop that waits.
inline void Pause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    asm volatile("yield" ::: "memory");
#endif
}

}  // namespace zam_platform
