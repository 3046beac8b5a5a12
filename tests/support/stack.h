#pragma once

#include <cstddef>
#include <functional>

namespace zam_test {

/// Whether this build has a sanitizer whose frames are larger than ordinary ones.
constexpr bool HasLargeFrames() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#elif defined(__has_feature)
    return __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
    return false;
#endif
}

/// Runs `body` on a stack of that many bytes, whatever the test itself has.
void OnStackOf(std::size_t bytes, const std::function<void()>& body);

}  // namespace zam_test
